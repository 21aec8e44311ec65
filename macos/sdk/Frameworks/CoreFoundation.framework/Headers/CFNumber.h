#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef const struct CF_BRIDGED_TYPE(NSNumber) __CFBoolean* CFBooleanRef;
typedef const struct CF_BRIDGED_TYPE(NSNumber) __CFNumber* CFNumberRef;

CF_EXPORT const CFBooleanRef _Null_unspecified kCFBooleanTrue;
CF_EXPORT const CFBooleanRef _Null_unspecified kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

typedef CF_ENUM(CFIndex, CFNumberType) {
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
};

CF_EXPORT CFTypeID CFNumberGetTypeID(void);
// False when the value does not fit; what was written is then an approximation.
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
