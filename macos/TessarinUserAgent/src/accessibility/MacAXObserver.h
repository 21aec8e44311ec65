#pragma once

#import <ApplicationServices/ApplicationServices.h>

#include <memory>

#import "common_mac/CFAutoPointer.h"
#include "useragent/Accessibility.h"
#include "useragent/ObservedBrowsers.h"
#include "useragent/PreparedWindows.h"

namespace useragent {

// One AXObserver, served by the main run loop in its default mode.
class MacAXObserver final : public AXObserver {
 public:
    // On success fills `observer`. What is observed is said to `observed`, which must outlive it; another
    // main window is told by `prepared`, when it is known what is in it.
    static AXError Create(std::int32_t pid, AXObserverCallback callback, ObservedBrowsers& observed,
                          const std::shared_ptr<PreparedWindows>& prepared,
                          std::unique_ptr<AXObserver>& observer);
    ~MacAXObserver() override;
    MacAXObserver(const MacAXObserver&) = delete;
    MacAXObserver& operator=(const MacAXObserver&) = delete;

    AXError addNotification(const AXElementRef& element, const std::string& notification) override;
    void addToMainRunLoop() override;
    void removeFromMainRunLoop() override;

 private:
    struct Receiver;

    MacAXObserver(std::int32_t pid, AXObserverCallback callback, ObservedBrowsers& observed,
                  const std::shared_ptr<PreparedWindows>& prepared);
    static ObservedBrowsers::Tell TellOnMainThread(const std::weak_ptr<Receiver>& weak);
    static void receive(AXObserverRef observer, AXUIElementRef element, CFStringRef notification,
                        CFDictionaryRef info, void* refcon);
    AXObserverRef get() const { return static_cast<AXObserverRef>(const_cast<void*>(observer_.get())); }

    const std::int32_t pid_;
    ObservedBrowsers& observed_;
    // What the platform's callback is given. It may be on its way on the main thread while another thread
    // destroys this object.
    std::shared_ptr<Receiver> receiver_;
    cmn::CFAutoPointer observer_;
};

}  // namespace useragent
