#import "accessibility/MacAccessibility.h"

#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>

#include <chrono>

#import "accessibility/MacAXElement.h"
#import "accessibility/MacAXObserver.h"
#import "common_mac/CFAutoPointer.h"
#import "common_mac/FoundationBridges.h"
#include "useragent/Deadlines.h"

namespace useragent {

static_assert(static_cast<int>(AXError::cannotComplete) == kAXErrorCannotComplete);
static_assert(static_cast<int>(AXError::noValue) == kAXErrorNoValue);

namespace {

// Set on the system-wide element, a deadline holds for every element; set on any other, for that one only.
void SetMessagingTimeout(std::chrono::duration<float> seconds) {
    const cmn::CFAutoPointer systemWide(AXUIElementCreateSystemWide());
    if (systemWide) {
        AXUIElementSetMessagingTimeout(static_cast<AXUIElementRef>(systemWide.get()), seconds.count());
    }
}

AXError Read(AXUIElementRef element, const std::string& attribute, cmn::CFAutoPointer& value) {
    NSString* const name = [NSString stringWithStdString:attribute];
    return static_cast<AXError>(
        AXUIElementCopyAttributeValue(element, (__bridge CFStringRef)name, value.out()));
}

}  // namespace

MacAccessibility::MacAccessibility() {
    SetMessagingTimeout(kBrowserCallDeadline);
}

AXError MacAccessibility::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                             AXValue& value) {
    @autoreleasepool {
        std::int32_t pid = 0;
        AXError error = getPid(element, pid);
        if (error != AXError::success) {
            return error;
        }
        if (silent_.isSilent(pid)) {
            return AXError::cannotComplete;
        }
        cmn::CFAutoPointer read;
        error = Read(MacAXElement::Of(element), attribute, read);
        silent_.note(pid, error);
        if (error == AXError::success && !read) {
            error = AXError::noValue;
        }
        if (error == AXError::success) {
            value = ToAXValue(read);
        }
        return error;
    }
}

AXElementRef MacAccessibility::createApplication(std::int32_t pid) {
    cmn::CFAutoPointer element(AXUIElementCreateApplication(pid));
    return element ? std::make_shared<MacAXElement>(std::move(element)) : nullptr;
}

AXError MacAccessibility::getPid(const AXElementRef& element, std::int32_t& pid) {
    AXUIElementRef const reference = MacAXElement::Of(element);
    return reference != nullptr ? static_cast<AXError>(AXUIElementGetPid(reference, &pid))
                                : AXError::illegalArgument;
}

AXError MacAccessibility::createObserver(std::int32_t pid, AXObserverCallback callback,
                                         std::unique_ptr<AXObserver>& observer) {
    return MacAXObserver::Create(pid, std::move(callback), observer);
}

bool MacAccessibility::isProcessTrusted() {
    return AXIsProcessTrusted();
}

bool MacAccessibility::isProcessTrustedWithPrompt() {
    @autoreleasepool {
        NSDictionary* const options = @{(__bridge NSString*)kAXTrustedCheckOptionPrompt : @YES};
        return AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options);
    }
}

void MacAccessibility::prepare(const std::vector<std::int32_t>& pids) {
    @autoreleasepool {
        silent_.probe(pids, [](std::int32_t pid) {
            const cmn::CFAutoPointer application(AXUIElementCreateApplication(pid));
            cmn::CFAutoPointer role;
            return application ? Read(static_cast<AXUIElementRef>(application.get()), kRoleAttribute, role)
                               : AXError::failure;
        });
    }
}

}  // namespace useragent
