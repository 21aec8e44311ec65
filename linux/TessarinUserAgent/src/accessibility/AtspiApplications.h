#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiMessages.h"

namespace useragent {

// What is known about the applications on the accessibility bus, by process id. Any thread.
class AtspiApplications {
 public:
    // The unique bus name of the process's application, looked up when it is not known yet. Nothing when the
    // process has none or the lookup takes too long.
    std::optional<QString> busName(const BusLink& link, std::int32_t pid, Deadline deadline);

    // The same without asking; empty when it is not known.
    QString knownBusName(std::int32_t pid) const;

    // Makes the bus names of all these processes known with one lookup.
    void lookUp(const BusLink& link, const std::vector<std::int32_t>& pids, Deadline deadline);

    // The name turned out to belong to nobody any more.
    void forget(std::int32_t pid, const QString& busName);

    // Path of the window last taken for the main one; empty when there was none.
    QString mainWindow(std::int32_t pid) const;
    void setMainWindow(std::int32_t pid, const QString& path);

    // Tell the log, once for each process, about one whose window stays without content, and about one that
    // stays away from the bus. The latter is to be called once in a polling cycle.
    void noteWindowContent(std::int32_t pid, bool empty);
    void notePresence(std::int32_t pid);

 private:
    void forgetOtherEpochs(const BusLink& link);

    mutable std::mutex mutex_;  // guards what follows
    std::uint64_t epoch_ = 0;
    std::map<std::int32_t, QString> names_;
    std::map<std::int32_t, QString> mainWindows_;
    std::map<std::int32_t, int> emptyReads_;
    std::map<std::int32_t, int> absences_;
};

// The unique names of the applications that the registry lists, in its order. Nothing when it does not
// answer.
std::optional<QStringList> RegisteredApplications(const BusLink& link, Deadline deadline);

// The process ids of the owners of those names; 0 for a name without one, nothing where the bus did not
// answer.
std::vector<std::optional<std::int32_t>> ProcessIds(const BusLink& link, const QStringList& busNames,
                                                    Deadline deadline);

}  // namespace useragent
