#pragma once

#include <ApplicationServices/AXError.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <sys/types.h>

CF_EXTERN_C_BEGIN
CF_ASSUME_NONNULL_BEGIN

typedef const struct CF_BRIDGED_TYPE(id) __AXUIElement* AXUIElementRef;
typedef struct CF_BRIDGED_MUTABLE_TYPE(id) __AXObserver* AXObserverRef;

CF_EXPORT Boolean AXIsProcessTrusted(void);
// With the option set to true it may show a dialog, and returns without waiting for it.
CF_EXPORT Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef _Nullable options);
CF_EXPORT CFStringRef kAXTrustedCheckOptionPrompt;

CF_EXPORT CFTypeID AXUIElementGetTypeID(void);
CF_EXPORT AXUIElementRef AXUIElementCreateApplication(pid_t pid);
CF_EXPORT AXUIElementRef AXUIElementCreateSystemWide(void);
// The value belongs to the caller.
CF_EXPORT AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                                CFTypeRef _Nullable* _Nonnull value);
CF_EXPORT AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid);
// In seconds, for this element only, of the system-wide one for all elements; 0 restores the default.
CF_EXPORT AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);

typedef void (*AXObserverCallbackWithInfo)(AXObserverRef observer, AXUIElementRef element,
                                           CFStringRef notification, CFDictionaryRef info,
                                           void* _Nullable refcon);

CF_EXPORT AXError AXObserverCreateWithInfoCallback(pid_t application, AXObserverCallbackWithInfo callback,
                                                   AXObserverRef _Nullable* _Nonnull outObserver);
CF_EXPORT AXError AXObserverAddNotification(AXObserverRef observer, AXUIElementRef element,
                                            CFStringRef notification, void* _Nullable refcon);
CF_EXPORT CFRunLoopSourceRef AXObserverGetRunLoopSource(AXObserverRef observer);

CF_ASSUME_NONNULL_END
CF_EXTERN_C_END
