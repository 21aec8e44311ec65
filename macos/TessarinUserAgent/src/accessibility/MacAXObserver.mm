#import "accessibility/MacAXObserver.h"

#include <dispatch/dispatch.h>

#include <atomic>
#include <utility>

#import "accessibility/MacAXElement.h"
#import "common_mac/FoundationBridges.h"
#include "usercommon/CallNoThrow.h"

namespace useragent {

struct MacAXObserver::Receiver : std::enable_shared_from_this<Receiver> {
    AXObserverCallback callback;
    std::int32_t pid = 0;
    std::weak_ptr<PreparedWindows> prepared;
    std::atomic<bool> active{true};

    // Any thread. False when that notification is told at once, on the main thread.
    bool announce(const AXElementRef& element, const std::string& notification) {
        const auto windows = prepared.lock();
        if (!windows || notification != kMainWindowChangedNotification) {
            return false;
        }
        windows->announce(pid, element, [weak = weak_from_this(), element, notification] {
            const auto receiver = weak.lock();
            if (receiver && receiver->active) {
                receiver->callback(element, notification);
            }
        });
        return true;
    }
};

// For what a look finds: as the run loop would tell it.
ObservedBrowsers::Tell MacAXObserver::TellOnMainThread(const std::weak_ptr<Receiver>& weak) {
    return [weak](const AXElementRef& element, const std::string& notification) {
        if (const auto receiver = weak.lock(); receiver && receiver->announce(element, notification)) {
            return;
        }
        const std::weak_ptr<Receiver> addressee = weak;
        const AXElementRef changed = element;
        const std::string name = notification;
        dispatch_async(dispatch_get_main_queue(), ^{
          const auto receiver = addressee.lock();
          if (receiver && receiver->active) {
              cmn::CallNoThrow(name.c_str(), [&] { receiver->callback(changed, name); });
          }
        });
    };
}

MacAXObserver::MacAXObserver(std::int32_t pid, AXObserverCallback callback, ObservedBrowsers& observed,
                             const std::shared_ptr<PreparedWindows>& prepared)
    : pid_(pid), observed_(observed), receiver_(std::make_shared<Receiver>()) {
    receiver_->callback = std::move(callback);
    receiver_->pid = pid;
    receiver_->prepared = prepared;
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
                              const std::shared_ptr<PreparedWindows>& prepared,
                              std::unique_ptr<AXObserver>& observer) {
    std::unique_ptr<MacAXObserver> created(new MacAXObserver(pid, std::move(callback), observed, prepared));
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
    auto* const receiver = static_cast<Receiver*>(refcon);
    if (!receiver->active) {
        return;
    }
    @autoreleasepool {
        cmn::CallNoThrow("An accessibility notification", [&] {
            const auto changed = std::make_shared<MacAXElement>(cmn::CFAutoPointer::Retained(element));
            const std::string name = cmn::ToStdString((__bridge NSString*)notification);
            if (!receiver->announce(changed, name)) {
                receiver->callback(changed, name);
            }
        });
    }
}

}  // namespace useragent
