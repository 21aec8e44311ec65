#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef CFStringRef CFRunLoopMode;
typedef struct CF_BRIDGED_MUTABLE_TYPE(id) __CFRunLoop* CFRunLoopRef;
typedef struct CF_BRIDGED_MUTABLE_TYPE(id) __CFRunLoopSource* CFRunLoopSourceRef;

typedef struct CF_BRIDGED_MUTABLE_TYPE(id) __CFRunLoopObserver* CFRunLoopObserverRef;

typedef CF_OPTIONS(CFOptionFlags, CFRunLoopActivity) {
    kCFRunLoopEntry = 1,
    kCFRunLoopBeforeTimers = 2,
    kCFRunLoopBeforeSources = 4,
    kCFRunLoopBeforeWaiting = 32,
    kCFRunLoopAfterWaiting = 64,
    kCFRunLoopExit = 128,
};

CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

CF_EXPORT CFRunLoopRef _Null_unspecified CFRunLoopGetCurrent(void);
CF_EXPORT CFRunLoopRef _Null_unspecified CFRunLoopGetMain(void);
CF_EXPORT void CFRunLoopStop(CFRunLoopRef rl);
CF_EXPORT void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef _Null_unspecified source,
                                  CFRunLoopMode _Null_unspecified mode);
CF_EXPORT void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef _Null_unspecified source,
                                     CFRunLoopMode _Null_unspecified mode);
CF_EXPORT void CFRunLoopAddObserver(CFRunLoopRef rl, CFRunLoopObserverRef _Null_unspecified observer,
                                    CFRunLoopMode _Null_unspecified mode);

#if __BLOCKS__
// The observer belongs to the caller.
CF_EXPORT CFRunLoopObserverRef _Null_unspecified CFRunLoopObserverCreateWithHandler(
    CFAllocatorRef _Nullable allocator, CFOptionFlags activities, Boolean repeats, CFIndex order,
    void (^_Null_unspecified block)(CFRunLoopObserverRef _Null_unspecified observer,
                                    CFRunLoopActivity activity));
#endif

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
