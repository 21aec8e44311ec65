#include "accessibility/FieldSubscription.h"

#include "useragent/Deadlines.h"

namespace useragent {

FieldSubscription::FieldSubscription(const std::shared_ptr<Session>& session,
                                     std::shared_ptr<const AtspiElement> field, AXObserverCallback callback)
    : Subscription(session, field->pid,
                   {field->object, atspi::kObjectEventInterface, "TextChanged", atspi::kTextChangedEvent},
                   std::move(callback)),
      field_(std::move(field)) {}

void FieldSubscription::refresh() {
    if (follower_.changed() &&
        !ask<std::string>(atspi::TextOf(field_->object), [this](const auto& text) { finishRead(text); })) {
        follower_.unanswered();
    }
}

void FieldSubscription::recovered(const std::string& busName) {
    const ValueFollower::Retry retry =
        busName == field_->object.busName ? follower_.recovered() : ValueFollower::Retry::none;
    if (retry == ValueFollower::Retry::now) {
        refresh();
    } else if (retry == ValueFollower::Retry::later) {
        refreshLater();
    }
}

void FieldSubscription::refreshLater() {
    if (const std::shared_ptr<Session> alive = session()) {
        alive->surroundings.dispatch->after(kPollingPause, cmn::QueuePriority::normal,
                                            [loop = alive->surroundings.loop, weak = weak_from_this()] {
                                                loop->post([weak] {
                                                    if (const auto self = weak.lock()) {
                                                        self->refresh();
                                                    }
                                                });
                                            });
    }
}

void FieldSubscription::finishRead(const cmn::bus::Result<std::string>& text) {
    if (text) {
        if (follower_.read(*text)) {
            const auto element = std::make_shared<AtspiElement>(*field_);
            element->known[kValueAttribute] = *text;
            deliver(element, kValueChangedNotification);
        }
    } else if (atspi::IsTimeout(text.error())) {
        follower_.unanswered();
    } else {
        follower_.failed();
    }
}

}  // namespace useragent
