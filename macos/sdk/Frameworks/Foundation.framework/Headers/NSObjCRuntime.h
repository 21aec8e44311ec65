#pragma once

#include <CoreFoundation/CFBase.h>
#include <objc/NSObjCRuntime.h>
#include <objc/objc.h>
#include <os/availability.h>

#ifdef __cplusplus
#define FOUNDATION_EXPORT extern "C"
#else
#define FOUNDATION_EXPORT extern
#endif
#define FOUNDATION_EXTERN FOUNDATION_EXPORT

#define NS_ENUM(type, name) CF_ENUM(type, name)
#define NS_OPTIONS(type, name) CF_OPTIONS(type, name)

#define NS_ASSUME_NONNULL_BEGIN CF_ASSUME_NONNULL_BEGIN
#define NS_ASSUME_NONNULL_END CF_ASSUME_NONNULL_END

#define NS_FORMAT_FUNCTION(format_index, arguments_index) \
    __attribute__((format(__NSString__, format_index, arguments_index)))
#define NS_REQUIRES_NIL_TERMINATION __attribute__((sentinel(0, 1)))
// The pointer lives as long as the object it was read from.
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
#define NS_REQUIRES_SUPER __attribute__((objc_requires_super))
#define NS_UNAVAILABLE __attribute__((unavailable))

@class NSString;

NS_ASSUME_NONNULL_BEGIN

FOUNDATION_EXPORT void NSLog(NSString* format, ...) NS_FORMAT_FUNCTION(1, 2);

static const NSInteger NSNotFound = NSIntegerMax;

NS_ASSUME_NONNULL_END
