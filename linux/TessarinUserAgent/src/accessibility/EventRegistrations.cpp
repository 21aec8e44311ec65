#include "accessibility/EventRegistrations.h"

#include <algorithm>

#include "accessibility/AtspiQueries.h"

namespace useragent {

AXError EventRegistrations::add(const std::string& event, const std::string& busName,
                                cmn::bus::Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        const auto found = observers_.find({event, busName});
        if (found != observers_.end()) {
            ++found->second;
            return AXError::success;
        }
    }
    const auto answer = cmn::bus::AskAndWait(connection_, atspi::Registration(event, busName), deadline);
    if (!answer) {
        return atspi::ErrorOf(answer.error());
    }
    const std::lock_guard lock(mutex_);
    ++observers_[{event, busName}];
    return AXError::success;
}

void EventRegistrations::remove(const std::string& event, const std::string& busName) {
    const std::lock_guard lock(mutex_);
    const auto found = observers_.find({event, busName});
    if (found == observers_.end() || --found->second > 0) {
        return;
    }
    observers_.erase(found);
    const bool stillWanted = std::any_of(observers_.begin(), observers_.end(),
                                         [&](const auto& entry) { return entry.first.first == event; });
    if (!stillWanted) {
        connection_->send(atspi::Deregistration(event).makeCall(*connection_));
    }
}

bool EventRegistrations::registryOwner(const std::string& owner) {
    const std::lock_guard lock(mutex_);
    if (owner.empty() || owner == registryOwner_) {
        return false;
    }
    const bool replaced = !std::exchange(registryOwner_, owner).empty();
    if (replaced) {
        for (const auto& [wanted, count] : observers_) {
            connection_->send(atspi::Registration(wanted.first, wanted.second).makeCall(*connection_));
        }
    }
    return replaced;
}

}  // namespace useragent
