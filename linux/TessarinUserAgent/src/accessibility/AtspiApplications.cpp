#include "accessibility/AtspiApplications.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "common/log.h"

namespace useragent {
namespace {

// A window may be caught once before its content is there.
constexpr int kEmptyReadsThatCount = 2;

// A browser that is starting comes to the bus later than its first window.
constexpr int kAbsencesThatCount = 4;

// Unique names of everybody on the bus who is not among `known`.
QStringList OtherNames(const BusLink& link, const QStringList& known, Deadline deadline) {
    const QDBusMessage reply = CallAndWait(link.connection, atspi::CallBus("ListNames"), deadline);
    QStringList names;
    if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != QLatin1String("as")) {
        return names;
    }
    for (const QString& name : reply.arguments().at(0).toStringList()) {
        if (name.startsWith(QLatin1Char(':')) && !known.contains(name)) {
            names.push_back(name);
        }
    }
    return names;
}

struct Candidate {
    std::int32_t pid = 0;
    QString name;
};

// The names that belong to one of the processes.
std::vector<Candidate> OfProcesses(const BusLink& link, const QStringList& names,
                                   const std::set<std::int32_t>& pids, Deadline deadline) {
    const auto owners = ProcessIds(link, names, deadline);
    std::vector<Candidate> candidates;
    for (std::size_t i = 0; i < owners.size(); ++i) {
        if (owners[i] && pids.contains(*owners[i])) {
            candidates.push_back({*owners[i], names[static_cast<qsizetype>(i)]});
        }
    }
    return candidates;
}

// Leaves those that have an application at their accessibility root: a process may also be on the bus to
// look.
void KeepApplications(const BusLink& link, std::vector<Candidate>& candidates, Deadline deadline) {
    std::vector<QDBusMessage> calls;
    calls.reserve(candidates.size());
    for (const Candidate& candidate : candidates) {
        calls.push_back(
            atspi::Call({candidate.name, atspi::kRootPath}, atspi::kAccessibleInterface, "GetRole"));
    }
    const Replies replies = CallTogether(link.connection, calls, deadline);
    std::vector<Candidate> kept;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (atspi::ReadNumber(replies.messages[i]) == atspi::kRoleApplication) {
            kept.push_back(std::move(candidates[i]));
        }
    }
    candidates = std::move(kept);
}

}  // namespace

std::optional<QStringList> RegisteredApplications(const BusLink& link, Deadline deadline) {
    const QDBusMessage reply = CallAndWait(
        link.connection,
        atspi::Call({atspi::kRegistryName, atspi::kRootPath}, atspi::kAccessibleInterface, "GetChildren"),
        deadline);
    const auto applications = atspi::ReadObjects(reply, deadline);
    if (!applications) {
        return std::nullopt;
    }
    QStringList names;
    for (const atspi::ObjectRef& application : *applications) {
        names.push_back(application.busName);
    }
    names.removeDuplicates();
    return names;
}

std::vector<std::optional<std::int32_t>> ProcessIds(const BusLink& link, const QStringList& busNames,
                                                    Deadline deadline) {
    std::vector<QDBusMessage> calls;
    for (const QString& name : busNames) {
        calls.push_back(atspi::CallBus("GetConnectionUnixProcessID", {name}));
    }
    std::vector<std::optional<std::int32_t>> pids;
    for (const QDBusMessage& reply : CallTogether(link.connection, calls, deadline).messages) {
        if (const auto pid = atspi::ReadNumber(reply)) {
            pids.emplace_back(static_cast<std::int32_t>(*pid));
        } else {
            pids.push_back(atspi::IsNobodyThere(reply) ? std::optional(0) : std::nullopt);
        }
    }
    return pids;
}

std::optional<QString> AtspiApplications::busName(const BusLink& link, std::int32_t pid, Deadline deadline) {
    lookUp(link, {pid}, deadline);
    const QString name = knownBusName(pid);
    return name.isEmpty() ? std::nullopt : std::optional(name);
}

QString AtspiApplications::knownBusName(std::int32_t pid) const {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(pid);
    return found != names_.end() ? found->second : QString();
}

void AtspiApplications::lookUp(const BusLink& link, const std::vector<std::int32_t>& pids,
                               Deadline deadline) {
    std::set<std::int32_t> wanted;
    {
        const std::lock_guard lock(mutex_);
        forgetOtherEpochs(link);
        for (const std::int32_t pid : pids) {
            if (!names_.contains(pid)) {
                wanted.insert(pid);
            }
        }
    }
    if (wanted.empty()) {
        return;
    }
    const QStringList registered = RegisteredApplications(link, deadline).value_or(QStringList());
    std::vector<Candidate> found = OfProcesses(link, registered, wanted, deadline);
    for (const Candidate& candidate : found) {
        wanted.erase(candidate.pid);
    }
    if (!wanted.empty()) {
        // A registry that was restarted does not know the applications that were there before.
        std::vector<Candidate> others =
            OfProcesses(link, OtherNames(link, registered, deadline), wanted, deadline);
        KeepApplications(link, others, deadline);
        std::move(others.begin(), others.end(), std::back_inserter(found));
    }
    const std::lock_guard lock(mutex_);
    if (epoch_ == link.epoch) {
        for (const Candidate& candidate : found) {
            names_.insert_or_assign(candidate.pid, candidate.name);  // the latest of several
        }
    }
}

void AtspiApplications::forget(std::int32_t pid, const QString& busName) {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(pid);
    if (found != names_.end() && found->second == busName) {
        names_.erase(found);
        mainWindows_.erase(pid);
        emptyReads_.erase(pid);
    }
}

QString AtspiApplications::mainWindow(std::int32_t pid) const {
    const std::lock_guard lock(mutex_);
    const auto found = mainWindows_.find(pid);
    return found != mainWindows_.end() ? found->second : QString();
}

void AtspiApplications::setMainWindow(std::int32_t pid, const QString& path) {
    const std::lock_guard lock(mutex_);
    mainWindows_[pid] = path;
}

void AtspiApplications::noteWindowContent(std::int32_t pid, bool empty) {
    const std::lock_guard lock(mutex_);
    int& reads = emptyReads_[pid];
    if (!empty) {
        reads = 0;
    } else if (++reads == kEmptyReadsThatCount) {
        TLOG_WARN(
            "The application with process id {} does not show the content of its windows and cannot be read. "
            "Browsers "
            "of the Chromium family have to be started with --force-renderer-accessibility=basic",
            pid);
    }
}

void AtspiApplications::notePresence(std::int32_t pid) {
    const std::lock_guard lock(mutex_);
    if (names_.contains(pid)) {
        absences_.erase(pid);
    } else if (++absences_[pid] == kAbsencesThatCount) {
        TLOG_WARN(
            "The application with process id {} is not on the accessibility bus and cannot be read. Browsers "
            "that were "
            "started while accessibility was off may have to be started again",
            pid);
    }
}

void AtspiApplications::forgetOtherEpochs(const BusLink& link) {
    if (epoch_ < link.epoch) {
        epoch_ = link.epoch;
        names_.clear();
        mainWindows_.clear();
        emptyReads_.clear();
        absences_.clear();
    }
}

}  // namespace useragent
