#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef const struct CF_BRIDGED_TYPE(NSData) __CFData* CFDataRef;

CF_EXPORT CFTypeID CFDataGetTypeID(void);
CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
// Null for empty data.
CF_EXPORT const UInt8* _Nullable CFDataGetBytePtr(CFDataRef theData);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
