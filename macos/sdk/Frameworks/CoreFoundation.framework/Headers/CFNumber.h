#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef const struct CF_BRIDGED_TYPE(NSNumber) __CFBoolean* CFBooleanRef;
typedef const struct CF_BRIDGED_TYPE(NSNumber) __CFNumber* CFNumberRef;

CF_EXPORT const CFBooleanRef _Null_unspecified kCFBooleanTrue;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);

typedef CF_ENUM(CFIndex, CFNumberType) {
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
};

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
