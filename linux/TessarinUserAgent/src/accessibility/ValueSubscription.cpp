#include "accessibility/ValueSubscription.h"

#include <utility>

#include "accessibility/AtspiCore.h"

namespace useragent {

ValueSubscription::ValueSubscription(std::weak_ptr<AtspiCore> core, BusLink link,
                                     std::shared_ptr<const AtspiElement> field, AXObserverCallback callback)
    : AtspiSubscription(
          std::move(core), std::move(link),
          {field->object, atspi::kObjectEventInterface, "TextChanged", atspi::kTextChangedEvent},
          std::move(callback)),
      field_(std::move(field)) {}

void ValueSubscription::signalled(const QDBusMessage& /*signal*/) {
    refresh();
}

void ValueSubscription::refresh() {
    if (follower_.changed()) {
        startRead();
    }
}

void ValueSubscription::recovered(const QString& busName) {
    const ValueFollower::Retry retry =
        busName == field_->object.busName ? follower_.recovered() : ValueFollower::Retry::none;
    if (retry == ValueFollower::Retry::now) {
        refresh();
    } else if (retry == ValueFollower::Retry::later) {
        refreshLater();
    }
}

void ValueSubscription::refreshLater() {
    const std::shared_ptr<AtspiCore> alive = core();
    if (!alive) {
        return;
    }
    const std::shared_ptr<cmn::Dispatch> dispatch = alive->dispatch;
    dispatch->after(kPollingPause, cmn::QueuePriority::normal, [dispatch, self = weak_from_this()] {
        dispatch->asyncMain([self] {
            if (const auto subscription = self.lock(); subscription && !subscription->isClosed()) {
                subscription->refresh();
            }
        });
    });
}

void ValueSubscription::startRead() {
    const std::shared_ptr<AtspiCore> alive = core();
    if (!alive) {
        follower_.failed();
    } else if (alive->breaker.isOpen(link(), field_->object.busName)) {
        follower_.unanswered();
    } else {
        alive->calls.call(link().connection, atspi::GetText(field_->object), alive->settings.callDeadline,
                          [self = weak_from_this()](const QDBusMessage& reply) {
                              if (const auto subscription = self.lock()) {
                                  static_cast<ValueSubscription&>(*subscription).finishRead(reply);
                              }
                          });
    }
}

void ValueSubscription::finishRead(const QDBusMessage& reply) {
    const std::shared_ptr<AtspiCore> alive = core();
    if (const auto text = atspi::ReadString(reply)) {
        if (follower_.read(*text)) {
            const auto element = std::make_shared<AtspiElement>(*field_);
            element->value = *text;
            deliver(element, kValueChangedNotification);
        }
    } else if (IsTimeout(reply)) {
        follower_.unanswered();
        if (alive && !isClosed()) {
            alive->breaker.trip(link(), field_->object.busName, field_->pid);
        }
    } else {
        follower_.failed();
    }
}

}  // namespace useragent
