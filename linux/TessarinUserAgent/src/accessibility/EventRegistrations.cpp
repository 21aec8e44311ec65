#include "accessibility/EventRegistrations.h"

#include <algorithm>

namespace useragent {

AXError EventRegistrations::add(const BusLink& link, const char* event, const QString& busName,
                                Deadline deadline) {
    const Wanted wanted(event, busName);
    {
        const std::lock_guard lock(mutex_);
        forgetOtherEpochs(link);
        const auto found = observers_.find(wanted);
        if (found != observers_.end()) {
            ++found->second;
            return AXError::success;
        }
    }
    const QDBusMessage reply = CallAndWait(link.connection, registration(wanted), deadline);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        return atspi::ErrorOf(reply);
    }
    const std::lock_guard lock(mutex_);
    if (epoch_ == link.epoch) {
        ++observers_[wanted];
    }
    return AXError::success;
}

void EventRegistrations::remove(const BusLink& link, const char* event, const QString& busName) {
    const std::lock_guard lock(mutex_);
    const auto found = observers_.find({event, busName});
    if (epoch_ != link.epoch || found == observers_.end() || --found->second > 0) {
        return;
    }
    observers_.erase(found);
    const bool stillWanted = std::any_of(observers_.begin(), observers_.end(),
                                         [&](const auto& entry) { return entry.first.first == event; });
    if (!stillWanted) {
        // The registry can only be told to forget an event of all applications at once.
        QDBusMessage message =
            atspi::Call({atspi::kRegistryName, atspi::kRegistryPath}, atspi::kRegistryInterface,
                        "DeregisterEvent", {QString::fromLatin1(event)});
        link.connection.send(message);
    }
}

bool EventRegistrations::registryOwner(const BusLink& link, const QString& owner) {
    const std::lock_guard lock(mutex_);
    forgetOtherEpochs(link);
    if (owner.isEmpty() || owner == registryOwner_) {
        return false;
    }
    const bool replaced = !registryOwner_.isEmpty();
    registryOwner_ = owner;
    if (replaced) {
        for (const auto& [wanted, count] : observers_) {
            link.connection.send(registration(wanted));
        }
    }
    return replaced;
}

QDBusMessage EventRegistrations::registration(const Wanted& wanted) {
    const auto& [event, busName] = wanted;
    return atspi::Call({atspi::kRegistryName, atspi::kRegistryPath}, atspi::kRegistryInterface,
                       "RegisterEvent", {QString::fromStdString(event), QStringList(), busName});
}

void EventRegistrations::forgetOtherEpochs(const BusLink& link) {
    if (epoch_ < link.epoch) {
        epoch_ = link.epoch;
        registryOwner_.clear();
        observers_.clear();
    }
}

}  // namespace useragent
