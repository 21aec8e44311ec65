#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef UInt32 CFStringEncoding;
typedef CF_ENUM(CFStringEncoding, CFStringBuiltInEncodings) {
    kCFStringEncodingUTF8 = 0x08000100,
};

#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// In UTF-16 code units.
CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);

// Null when the string does not hold its text in this encoding.
CF_EXPORT const char* _Nullable CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

// False when the text, with its closing zero, does not fit or cannot be converted.
CF_EXPORT Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);

// Bytes that so many UTF-16 code units need at most, without closing zero.
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
