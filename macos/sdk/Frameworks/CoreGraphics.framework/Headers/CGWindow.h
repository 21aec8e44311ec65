#pragma once

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef uint32_t CGWindowID;
#define kCGNullWindowID ((CGWindowID)0)

typedef CF_OPTIONS(uint32_t, CGWindowListOption) {
    kCGWindowListOptionAll = 0,
    kCGWindowListOptionOnScreenOnly = (1 << 0),
    kCGWindowListExcludeDesktopElements = (1 << 4),
};

// Keys of a window's dictionary: a string that may be missing, and a number.
CF_EXPORT const CFStringRef kCGWindowOwnerName;
CF_EXPORT const CFStringRef kCGWindowOwnerPID;

// Dictionaries, front to back. Null without a window server.
CF_EXPORT CFArrayRef _Nullable CGWindowListCopyWindowInfo(CGWindowListOption option,
                                                          CGWindowID relativeToWindow);

typedef int32_t CGWindowLevel;
typedef CF_ENUM(int32_t, CGWindowLevelKey) {
    kCGFloatingWindowLevelKey = 5,
};

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
