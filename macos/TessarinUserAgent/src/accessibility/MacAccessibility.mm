#import "accessibility/MacAccessibility.h"

#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>

#include <chrono>
#include <utility>

#import "accessibility/MacAXElement.h"
#import "accessibility/MacAXObserver.h"
#import "common_mac/CFAutoPointer.h"
#import "common_mac/FoundationBridges.h"
#import "common_mac/standard_errors.h"
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

// Asks whether the process is silent or not.
class PlainReader final : public AccessibilityReader {
 public:
    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override {
        cmn::CFAutoPointer read;
        const AXError error = Read(MacAXElement::Of(element), attribute, read);
        if (error == AXError::success) {
            value = ToAXValue(read);
        }
        return error;
    }
};

AXError PidOf(const AXElementRef& element, std::int32_t& pid) {
    AXUIElementRef const reference = MacAXElement::Of(element);
    return reference != nullptr ? static_cast<AXError>(AXUIElementGetPid(reference, &pid))
                                : AXError::illegalArgument;
}

// Asks no process that is known not to answer.
class PoliteReader final : public AccessibilityReader {
 public:
    explicit PoliteReader(std::shared_ptr<SilentProcesses> silent) : silent_(std::move(silent)) {}

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override {
        std::int32_t pid = 0;
        AXError error = PidOf(element, pid);
        if (error != AXError::success) {
            return error;
        }
        if (silent_->isSilent(pid)) {
            return AXError::cannotComplete;
        }
        @autoreleasepool {
            cmn::CFAutoPointer read;
            error = Read(MacAXElement::Of(element), attribute, read);
            silent_->note(pid, error);
            if (error == AXError::success && !read) {
                error = AXError::noValue;
            }
            if (error == AXError::success) {
                value = ToAXValue(read);
            }
            return error;
        }
    }

 private:
    const std::shared_ptr<SilentProcesses> silent_;
};

}  // namespace

MacAccessibility::MacAccessibility(std::shared_ptr<cmn::Dispatch> dispatch)
    : silent_(std::make_shared<SilentProcesses>()),
      reader_(std::make_shared<PoliteReader>(silent_)),
      prepared_(std::make_shared<PreparedWindows>(std::move(dispatch), reader_,
                                                  &std::chrono::steady_clock::now, kURLFieldSearchDeadline)),
      observed_([](const AXElementRef& left, const AXElementRef& right) {
          AXUIElementRef const one = MacAXElement::Of(left);
          AXUIElementRef const other = MacAXElement::Of(right);
          return one != nullptr && other != nullptr && CFEqual(one, other);
      }) {
    SetMessagingTimeout(kBrowserCallDeadline);
}

AXError MacAccessibility::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                             AXValue& value) {
    std::int32_t pid = 0;
    AXError error = getPid(element, pid);
    if (error != AXError::success) {
        return error;
    }
    const auto prepared = prepared_->read(pid, element, attribute, value);
    error = prepared ? *prepared : reader_->copyAttributeValue(element, attribute, value);
    if (error == AXError::success) {
        observed_.note(pid, attribute, value);
    }
    return error;
}

AXElementRef MacAccessibility::createApplication(std::int32_t pid) {
    cmn::CFAutoPointer element(AXUIElementCreateApplication(pid));
    return element ? std::make_shared<MacAXElement>(std::move(element)) : nullptr;
}

AXError MacAccessibility::getPid(const AXElementRef& element, std::int32_t& pid) {
    return PidOf(element, pid);
}

AXError MacAccessibility::createObserver(std::int32_t pid, AXObserverCallback callback,
                                         std::unique_ptr<AXObserver>& observer) {
    return MacAXObserver::Create(pid, std::move(callback), observed_, prepared_, observer);
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

void MacAccessibility::runCycle(const std::function<void()>& cycle) {
    @autoreleasepool {
        cmn::WithStandardErrors("A look at the browsers", cycle);
    }
}

void MacAccessibility::prepare(const std::vector<WindowInfo>& browsers) {
    std::vector<std::int32_t> pids;
    for (const WindowInfo& browser : browsers) {
        pids.push_back(browser.ownerPid);
    }
    observed_.keepOnly(pids);
    PlainReader reader;
    silent_->probe(pids, [&](std::int32_t pid) {
        const AXElementRef application = createApplication(pid);
        return application ? observed_.look(pid, application, reader) : AXError::failure;
    });
}

}  // namespace useragent
