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
    dead_ += std::erase_if(wanted_, [&](const Wanted& wanted) { return wanted.second == busName; });
    if (wanted_.empty() || dead_ > kMostDead) {
        for (const std::string& event : events_) {
            connection_->send(atspi::Deregistration(event).makeCall(*connection_));
        }
        registerAll();
        dead_ = 0;
    }
}

bool EventRegistrations::registryOwner(const std::string& owner) {
    const std::lock_guard lock(mutex_);
    if (owner.empty() || owner == registryOwner_) {
        return false;
    }
    const bool isReplaced = !std::exchange(registryOwner_, owner).empty();
    if (isReplaced) {
        dead_ = 0;
        registerAll();
    }
    return isReplaced;
}

void EventRegistrations::registerAll() {
    for (const auto& [event, busName] : wanted_) {
        connection_->send(atspi::Registration(event, busName).makeCall(*connection_));
    }
}

}  // namespace useragent
