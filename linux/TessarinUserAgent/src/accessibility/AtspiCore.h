#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiApplications.h"
#include "accessibility/AtspiReader.h"
#include "accessibility/AtspiSubscription.h"
#include "accessibility/EventRegistrations.h"
#include "accessibility/MainThreadCalls.h"
#include "accessibility/ResponseBreaker.h"
#include "linux_usercommon/LinuxDispatch.h"

namespace useragent {

// The subscriptions that are open. Any thread.
class SubscriptionList {
 public:
    void add(const AtspiSubscription::Ptr& subscription);
    std::vector<AtspiSubscription::Ptr> all();

 private:
    std::mutex mutex_;
    std::vector<std::weak_ptr<AtspiSubscription>> subscriptions_;
};

// What the parts of the accessibility end share. Made and destroyed on the main thread.
struct AtspiCore : std::enable_shared_from_this<AtspiCore> {
    AtspiCore(std::shared_ptr<cmn::LinuxDispatch> mainDispatch, const AtspiSettings& atspiSettings);

    Deadline deadline() const { return Clock::now() + settings.callDeadline; }

    // Calls `what` for each open subscription, on the main thread.
    template <typename What>
    void forEachSubscription(What what) {
        calls.post([weak = weak_from_this(), what = std::move(what)] {
            if (const auto alive = weak.lock()) {
                for (const AtspiSubscription::Ptr& subscription : alive->subscriptions.all()) {
                    what(*subscription);
                }
            }
        });
    }

    const std::shared_ptr<cmn::LinuxDispatch> dispatch;
    const AtspiSettings settings;
    MainThreadCalls calls;
    AccessibilityBus bus;
    ResponseBreaker breaker;
    AtspiApplications applications;
    AtspiReader reader;
    EventRegistrations events;
    SubscriptionList subscriptions;
};

}  // namespace useragent
