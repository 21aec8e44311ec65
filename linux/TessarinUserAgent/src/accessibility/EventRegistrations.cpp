#include "accessibility/EventRegistrations.h"

#include "accessibility/AtspiQueries.h"

namespace useragent {
namespace {

// The registry is told to forget when it has so many in vain.
constexpr std::size_t kMostDead = 30;

}  // namespace

AXError EventRegistrations::add(const std::string& event, const std::string& busName,
                                cmn::bus::Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (wanted_.contains({event, busName})) {
            return AXError::success;
        }
    }
    const auto answer = cmn::bus::AskAndWait(connection_, atspi::Registration(event, busName), deadline);
    if (!answer) {
        return atspi::ErrorOf(answer.error());
    }
    const std::lock_guard lock(mutex_);
    wanted_.emplace(event, busName);
    events_.insert(event);
    return AXError::success;
}

void EventRegistrations::forget(const std::string& busName) {
    const std::lock_guard lock(mutex_);
    const std::size_t died =
        std::erase_if(wanted_, [&](const Wanted& wanted) { return wanted.second == busName; });
    dead_ += died;
    if ((died > 0 && wanted_.empty()) || dead_ > kMostDead) {
        for (const std::string& event : events_) {
            connection_->send(atspi::Deregistration(event).makeCall(*connection_));
        }
        registerAll();
        dead_ = 0;
    }
}

void EventRegistrations::repeat() {
    const std::lock_guard lock(mutex_);
    dead_ = 0;
    registerAll();
}

void EventRegistrations::registerAll() {
    for (const auto& [event, busName] : wanted_) {
        connection_->send(atspi::Registration(event, busName).makeCall(*connection_));
    }
}

}  // namespace useragent
