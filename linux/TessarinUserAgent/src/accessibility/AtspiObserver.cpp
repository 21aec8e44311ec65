#include "accessibility/AtspiObserver.h"

#include <utility>

#include "accessibility/AtspiReader.h"
#include "accessibility/FieldSubscription.h"
#include "accessibility/WindowSubscription.h"

namespace useragent {

AtspiObserver::~AtspiObserver() {
    for (const Subscription::Ptr& subscription : subscriptions_) {
        subscription->close();
    }
}

AXError AtspiObserver::addNotification(const AXElementRef& element, const std::string& notification) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    const std::shared_ptr<AccessibilityBus> bus = bus_.lock();
    if (!bus || !target || target->pid != pid_) {
        return AXError::illegalArgument;
    }
    const bool isWindow = notification == kMainWindowChangedNotification;
    if ((!isWindow && notification != kValueChangedNotification) || isWindow != target->isApplication()) {
        return AXError::notificationUnsupported;
    }
    const cmn::bus::Deadline deadline = bus->deadline();
    const std::shared_ptr<Session> session = bus->session(deadline);
    if (!session) {
        return AXError::apiDisabled;
    }
    AtspiReader reader(session, *target, deadline);
    AXError error = reader.locate();
    if (error != AXError::success) {
        return error;
    }
    Subscription::Ptr subscription;
    if (isWindow) {
        subscription =
            std::make_shared<WindowSubscription>(session, pid_, reader.object().busName, callback_);
    } else {
        subscription = std::make_shared<FieldSubscription>(session, target, callback_);
    }
    error = subscription->open(deadline);
    if (error != AXError::success) {
        subscription->close();
        return error;
    }
    session->subscriptions->add(subscription);
    const std::lock_guard lock(mutex_);
    subscription->setDelivering(delivering_);
    subscriptions_.push_back(std::move(subscription));
    return AXError::success;
}

void AtspiObserver::setDelivering(bool delivering) {
    const std::lock_guard lock(mutex_);
    delivering_ = delivering;
    for (const Subscription::Ptr& subscription : subscriptions_) {
        subscription->setDelivering(delivering);
    }
}

}  // namespace useragent
