#include "accessibility/AtspiObserver.h"

#include <QThread>
#include <utility>

#include "accessibility/ValueSubscription.h"
#include "accessibility/WindowSubscription.h"

namespace useragent {
namespace {

// Subscriptions end on their own thread, and never in the middle of one of their callbacks.
template <typename Subscription, typename... Args>
AtspiSubscription::Ptr MakeSubscription(const std::shared_ptr<cmn::Dispatch>& dispatch, Args&&... args) {
    return {new Subscription(std::forward<Args>(args)...), [dispatch](AtspiSubscription* subscription) {
                std::shared_ptr<AtspiSubscription> owned(subscription);
                if (subscription->thread() != QThread::currentThread() || subscription->isBusy()) {
                    dispatch->asyncMain([owned = std::move(owned)]() mutable { owned.reset(); });
                }
            }};
}

}  // namespace

AtspiObserver::AtspiObserver(std::weak_ptr<AtspiCore> core, std::int32_t pid, AXObserverCallback callback)
    : core_(std::move(core)), pid_(pid), callback_(std::move(callback)) {}

AtspiObserver::~AtspiObserver() {
    for (const AtspiSubscription::Ptr& subscription : subscriptions_) {
        subscription->close();
    }
}

AXError AtspiObserver::addNotification(const AXElementRef& element, const std::string& notification) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    const std::shared_ptr<AtspiCore> core = core_.lock();
    if (!core || !target || target->pid != pid_) {
        return AXError::illegalArgument;
    }
    const bool isWindow = notification == kMainWindowChangedNotification;
    if ((!isWindow && notification != kValueChangedNotification) || isWindow != target->isApplication()) {
        return AXError::notificationUnsupported;
    }
    const Deadline deadline = core->deadline();
    const std::optional<BusLink> link = core->bus.link(deadline);
    if (!link) {
        return AXError::apiDisabled;
    }
    atspi::ObjectRef object;
    AXError error = core->reader.locate(*link, *target, deadline, object);
    if (error != AXError::success) {
        return error;
    }
    const AtspiSubscription::Ptr subscription =
        isWindow ? MakeSubscription<WindowSubscription>(core->dispatch, core_, *link, pid_, object.busName,
                                                        callback_)
                 : MakeSubscription<ValueSubscription>(core->dispatch, core_, *link, target, callback_);
    error = subscription->open(deadline);
    if (error != AXError::success) {
        subscription->close();
        return error;
    }
    core->subscriptions.add(subscription);
    const std::lock_guard lock(mutex_);
    subscription->setDelivering(delivering_);
    subscriptions_.push_back(subscription);
    return AXError::success;
}

void AtspiObserver::setDelivering(bool delivering) {
    const std::lock_guard lock(mutex_);
    delivering_ = delivering;
    for (const AtspiSubscription::Ptr& subscription : subscriptions_) {
        subscription->setDelivering(delivering);
    }
}

}  // namespace useragent
