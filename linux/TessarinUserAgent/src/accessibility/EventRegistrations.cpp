#include "accessibility/EventRegistrations.h"

#include <algorithm>
#include <iterator>

#include "accessibility/AtspiQueries.h"

namespace useragent {
namespace {

// The registry is told to forget when it has so many in vain.
constexpr std::size_t kMostDead = 30;

}  // namespace

AXError EventRegistrations::add(const std::vector<std::string>& events, const std::string& busName,
                                cmn::bus::Deadline deadline) {
    std::vector<std::string> missing;
    {
        const std::lock_guard lock(mutex_);
        const std::set<std::string>& known = wanted_[busName];
        std::copy_if(events.begin(), events.end(), std::back_inserter(missing),
                     [&](const std::string& event) { return !known.contains(event); });
    }
    if (missing.empty()) {
        return AXError::success;
    }
    cmn::bus::Batch batch(connection_, deadline);
    std::vector<cmn::bus::Batch::Answer<atspi::Done>> answers;
    answers.reserve(missing.size());
    for (const std::string& event : missing) {
        answers.push_back(batch.ask(atspi::Registration(event, busName)));
    }
    // Who is there when this is answered is not forgotten without `forget` being called later.
    const auto owner = batch.ask(atspi::ProcessIdOf(busName));
    batch.wait();
    AXError result = AXError::success;
    std::size_t taken = 0;
    const std::lock_guard lock(mutex_);
    const auto& ownerRead = owner.read();
    if (!ownerRead && atspi::IsNobodyThere(ownerRead.error())) {
        wanted_.erase(busName);
    }
    const auto entry = wanted_.find(busName);
    for (std::size_t i = 0; i < missing.size(); ++i) {
        const auto& answer = answers[i].read();
        if (!answer) {
            result = atspi::ErrorOf(answer.error());
            continue;
        }
        ++taken;
        events_.insert(missing[i]);
        if (entry != wanted_.end()) {
            entry->second.insert(missing[i]);
        }
    }
    if (entry == wanted_.end()) {
        noteDead(taken);
        return AXError::cannotComplete;
    }
    return result;
}

void EventRegistrations::forget(const std::string& busName) {
    const std::lock_guard lock(mutex_);
    if (const auto entry = wanted_.extract(busName)) {
        noteDead(entry.mapped().size());
    }
}

void EventRegistrations::repeat() {
    const std::lock_guard lock(mutex_);
    dead_ = 0;
    registerAll();
}

void EventRegistrations::noteDead(std::size_t registrations) {
    dead_ += registrations;
    if ((registrations > 0 && wanted_.empty()) || dead_ > kMostDead) {
        for (const std::string& event : events_) {
            connection_->send(atspi::Deregistration(event).makeCall(*connection_));
        }
        registerAll();
        dead_ = 0;
    }
}

void EventRegistrations::registerAll() {
    for (const auto& [busName, events] : wanted_) {
        for (const std::string& event : events) {
            connection_->send(atspi::Registration(event, busName).makeCall(*connection_));
        }
    }
}

}  // namespace useragent
