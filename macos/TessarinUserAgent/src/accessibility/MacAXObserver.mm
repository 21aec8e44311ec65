#import "accessibility/MacAXObserver.h"

#include <dispatch/dispatch.h>

#include <atomic>
#include <utility>

#import "accessibility/MacAXElement.h"
#import "common_mac/FoundationBridges.h"

namespace useragent {

struct MacAXObserver::Receiver {
    AXObserverCallback callback;
    std::atomic<bool> active{true};
};

// For what a look finds: as the run loop would tell it.
ObservedBrowsers::Tell MacAXObserver::TellOnMainThread(const std::weak_ptr<Receiver>& weak) {
    return [weak](const AXElementRef& element, const std::string& notification) {
        const std::weak_ptr<Receiver> addressee = weak;
        const AXElementRef changed = element;
        const std::string name = notification;
        dispatch_async(dispatch_get_main_queue(), ^{
          const auto receiver = addressee.lock();
          if (receiver && receiver->active) {
              receiver->callback(changed, name);
          }
        });
    };
}

MacAXObserver::MacAXObserver(std::int32_t pid, AXObserverCallback callback, ObservedBrowsers& observed)
    : pid_(pid), observed_(observed), receiver_(std::make_shared<Receiver>()) {
    receiver_->callback = std::move(callback);
}

MacAXObserver::~MacAXObserver() {
    removeFromMainRunLoop();
    receiver_->active = false;
    // A callback that the run loop has already begun to deliver ends before the main queue is served again.
    const auto receiver = std::exchange(receiver_, nullptr);
    const cmn::CFAutoPointer observer = std::exchange(observer_, cmn::CFAutoPointer());
    dispatch_async(dispatch_get_main_queue(), ^{
      (void)receiver;
      (void)observer;
    });
}

AXError MacAXObserver::Create(std::int32_t pid, AXObserverCallback callback, ObservedBrowsers& observed,
                              std::unique_ptr<AXObserver>& observer) {
    std::unique_ptr<MacAXObserver> created(new MacAXObserver(pid, std::move(callback), observed));
    AXObserverRef reference = nullptr;
    const ::AXError error = AXObserverCreateWithInfoCallback(pid, &MacAXObserver::receive, &reference);
    if (error == kAXErrorSuccess) {
        created->observer_ = cmn::CFAutoPointer(reference);
        observer = std::move(created);
    }
    return static_cast<AXError>(error);
}

AXError MacAXObserver::addNotification(const AXElementRef& element, const std::string& notification) {
    @autoreleasepool {
        AXUIElementRef const observed = MacAXElement::Of(element);
        if (observed == nullptr) {
            return AXError::illegalArgument;
        }
        NSString* const name = [NSString stringWithStdString:notification];
        const auto error = static_cast<AXError>(
            AXObserverAddNotification(get(), observed, (__bridge CFStringRef)name, receiver_.get()));
        if (error == AXError::success) {
            observed_.observe(pid_, element, notification, TellOnMainThread(receiver_));
        }
        return error;
    }
}

void MacAXObserver::addToMainRunLoop() {
    CFRunLoopAddSource(CFRunLoopGetMain(), AXObserverGetRunLoopSource(get()), kCFRunLoopDefaultMode);
}

void MacAXObserver::removeFromMainRunLoop() {
    if (observer_) {
        CFRunLoopRemoveSource(CFRunLoopGetMain(), AXObserverGetRunLoopSource(get()), kCFRunLoopDefaultMode);
    }
}

void MacAXObserver::receive(AXObserverRef /*observer*/, AXUIElementRef element, CFStringRef notification,
                            CFDictionaryRef /*info*/, void* refcon) {
    const auto* const receiver = static_cast<const Receiver*>(refcon);
    if (!receiver->active) {
        return;
    }
    @autoreleasepool {
        receiver->callback(std::make_shared<MacAXElement>(cmn::CFAutoPointer::Retained(element)),
                           cmn::ToStdString((__bridge NSString*)notification));
    }
}

}  // namespace useragent
