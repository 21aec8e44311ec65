#include "accessibility/AtspiCore.h"

#include <utility>

namespace useragent {

void SubscriptionList::add(const AtspiSubscription::Ptr& subscription) {
    const std::lock_guard lock(mutex_);
    std::erase_if(subscriptions_, [](const auto& weak) { return weak.expired(); });
    subscriptions_.push_back(subscription);
}

std::vector<AtspiSubscription::Ptr> SubscriptionList::all() {
    const std::lock_guard lock(mutex_);
    std::vector<AtspiSubscription::Ptr> alive;
    for (const auto& weak : subscriptions_) {
        if (AtspiSubscription::Ptr subscription = weak.lock()) {
            alive.push_back(std::move(subscription));
        }
    }
    return alive;
}

AtspiCore::AtspiCore(std::shared_ptr<cmn::LinuxDispatch> mainDispatch, const AtspiSettings& atspiSettings)
    : dispatch(std::move(mainDispatch)),
      settings(atspiSettings),
      calls(dispatch),
      bus(dispatch->pool(), settings),
      breaker(calls,
              [this](const QString& busName) {
                  forEachSubscription(
                      [busName](AtspiSubscription& subscription) { subscription.recovered(busName); });
              }),
      reader(applications, breaker) {}

}  // namespace useragent
