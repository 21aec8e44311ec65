#pragma once

#include <MacTypes.h>
#include <stdint.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif
#define CF_EXPORT extern

#define CF_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define CF_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

#define CF_ENUM(type, name) \
    enum name : type name;  \
    enum name : type
// In C++ a combination of two options is a plain number, so the options' type is the number's.
#ifdef __cplusplus
#define CF_OPTIONS(type, name) \
    type name;                 \
    enum __attribute__((flag_enum)) : name
#else
#define CF_OPTIONS(type, name)                        \
    enum __attribute__((flag_enum)) name : type name; \
    enum name : type
#endif

// Lets the compiler check casts between the two worlds.
#define CF_BRIDGED_TYPE(class_name) __attribute__((objc_bridge(class_name)))
#define CF_BRIDGED_MUTABLE_TYPE(class_name) __attribute__((objc_bridge_mutable(class_name)))

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

typedef const CF_BRIDGED_TYPE(id) void* CFTypeRef;
typedef const struct CF_BRIDGED_TYPE(NSString) __CFString* CFStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;

CF_EXPORT const CFAllocatorRef _Null_unspecified kCFAllocatorDefault;

// Objects of functions with "Create" or "Copy" in their name belong to the caller, who releases them; of
// others not.
CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
// Not for null.
CF_EXPORT void CFRelease(CFTypeRef cf);
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
