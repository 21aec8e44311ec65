#include "accessibility/Subscription.h"

#include <fmt/format.h>

#include <future>
#include <optional>
#include <utility>

namespace useragent {

Subscription::Subscription(const std::shared_ptr<Session>& session, std::int32_t pid, Source source,
                           AXObserverCallback callback)
    : session_(session),
      dispatch_(session->surroundings.dispatch),
      pid_(pid),
      source_(std::move(source)),
      callback_(std::move(callback)) {}

AXError Subscription::open(cmn::bus::Deadline deadline) {
    const std::shared_ptr<Session> alive = session();
    if (!alive) {
        return AXError::failure;
    }
    std::string rule = fmt::format("type='signal',sender='{}',interface='{}',member='{}'", object().busName,
                                   source_.interface, source_.member);
    if (!object().path.empty()) {
        rule += fmt::format(",path='{}'", object().path);
    }
    auto taken = std::make_shared<std::promise<bool>>();
    std::future<bool> isTaken = taken->get_future();
    auto signals = alive->connection->subscribe(
        rule,
        [weak = weak_from_this()](const cmn::bus::Message& signal) {
            const auto self = weak.lock();
            if (self && !self->isClosed()) {
                self->signalled(signal);
            }
        },
        [taken](const std::optional<cmn::bus::Error>& error) { taken->set_value(!error); });
    AXError error = alive->events.add(source_.event, object().busName, deadline);
    if (error == AXError::success &&
        (isTaken.wait_until(deadline) != std::future_status::ready || !isTaken.get())) {
        error = AXError::cannotComplete;  // what is said from now on might be missed
    }
    const std::lock_guard lock(mutex_);
    signals_ = std::move(signals);
    registered_ = error == AXError::success;
    return error;
}

void Subscription::close() {
    std::shared_ptr<cmn::bus::Subscription> signals;
    bool registered = false;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        signals.swap(signals_);
        registered = std::exchange(registered_, false);
    }
    const std::shared_ptr<Session> alive = session();
    if (registered && alive) {
        alive->events.remove(source_.event, object().busName);
    }
}

void Subscription::setDelivering(bool delivering) {
    bool isOwed = false;
    {
        const std::lock_guard lock(mutex_);
        delivering_ = delivering;
        isOwed = delivering && lost_;
    }
    if (isOwed) {
        tellLoss();
    }
}

void Subscription::lost() {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(lost_, true)) {
            return;
        }
    }
    tellLoss();
}

bool Subscription::isClosed() const {
    const std::lock_guard lock(mutex_);
    return closed_;
}

bool Subscription::isDelivering() const {
    const std::lock_guard lock(mutex_);
    return delivering_ && !closed_;
}

void Subscription::noteSilence(const cmn::bus::Error* error) const {
    const std::shared_ptr<Session> alive = session();
    if (alive && error != nullptr && atspi::IsTimeout(*error)) {
        alive->silent->note(object().busName, pid_);
    }
}

void Subscription::deliver(AXElementRef element, const char* notification, bool* isTold) {
    dispatch_->asyncMain([weak = weak_from_this(), element = std::move(element), notification, isTold] {
        // The callback may close and let go of it.
        const auto self = weak.lock();
        if (self && self->isDelivering() && (isTold == nullptr || !std::exchange(*isTold, true))) {
            self->callback_(element, notification);
        }
    });
}

}  // namespace useragent
