#pragma once

#include <QString>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiMessages.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Applications send events only when the registry knows somebody who wants them. Keeps the registry informed
// of what the observers want, for as long as one of them does. Any thread.
class EventRegistrations {
 public:
    // On success one more observer wants the event of that application.
    AXError add(const BusLink& link, const char* event, const QString& busName, Deadline deadline);

    // One observer less. Does not wait.
    void remove(const BusLink& link, const char* event, const QString& busName);

    // To be told regularly who owns the registry's name; a new registry is told everything again. True when
    // it was.
    bool registryOwner(const BusLink& link, const QString& owner);

 private:
    using Wanted = std::pair<std::string, QString>;  // event, bus name

    static QDBusMessage registration(const Wanted& wanted);
    void forgetOtherEpochs(const BusLink& link);

    std::mutex mutex_;  // guards what follows
    std::uint64_t epoch_ = 0;
    QString registryOwner_;
    std::map<Wanted, int> observers_;
};

}  // namespace useragent
