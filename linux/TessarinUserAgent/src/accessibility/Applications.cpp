#include "accessibility/Applications.h"

#include <algorithm>
#include <utility>

#include "accessibility/AtspiQueries.h"
#include "common/log.h"
#include "common/utf8.h"

namespace useragent {
namespace {

// A window may be caught once before its content is there.
constexpr int kEmptyReadsThatCount = 2;

// A browser that is starting comes to the bus later than its first window, and is looked at early meanwhile.
constexpr int kAbsencesThatCount = 10;

template <typename Items, typename Item>
bool Contains(const Items& items, const Item& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

std::string Find(const std::map<std::int32_t, std::string>& texts, std::int32_t pid) {
    const auto found = texts.find(pid);
    return found != texts.end() ? found->second : "";
}

}  // namespace

std::optional<std::vector<std::string>> Applications::registered(cmn::bus::Deadline deadline) {
    if (cmn::bus::Clock::now() >= deadline) {
        return std::nullopt;  // others took the time: it is not asked
    }
    const auto applications = cmn::bus::AskAndWait(connection_, atspi::RegisteredApplications(), deadline);
    noteRegistry(applications ? nullptr : &applications.error());
    if (!applications) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const atspi::ObjectRef& application : *applications) {
        if (!Contains(names, application.busName)) {
            names.push_back(application.busName);
        }
    }
    return names;
}

void Applications::noteRegistry(const cmn::bus::Error* error) {
    if (error != nullptr && !connection_->isReady()) {
        return;  // the bus is gone, with everybody on it
    }
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(registryFails_, error != nullptr) == (error != nullptr)) {
            return;
        }
    }
    if (error == nullptr) {
        TLOG_INFO("The accessibility registry answers again");
    } else if (error->is(cmn::bus::error::kTimeout)) {
        TLOG_WARN(
            "The accessibility registry does not answer, so browsers are not found. If it stays so, end "
            "at-spi2-registryd: it is started again");
    } else {
        TLOG_WARN(
            "The accessibility registry cannot be asked, so browsers are not found: {}. It ends at each "
            "question when it takes the session for one of X and finds no X server: under Wayland the "
            "session's bus has to be started with XDG_SESSION_TYPE=wayland and WAYLAND_DISPLAY in its "
            "environment, and without a DISPLAY that does not answer",
            cmn::EscapeControls(error->message));
    }
}

std::vector<std::optional<std::int32_t>> Applications::processIds(const std::vector<std::string>& busNames,
                                                                  cmn::bus::Deadline deadline,
                                                                  const std::vector<std::int32_t>& wanted) {
    cmn::bus::Batch batch(connection_, deadline);
    std::vector<cmn::bus::Batch::Answer<std::uint32_t>> answers;
    answers.reserve(busNames.size());
    for (const std::string& name : busNames) {
        answers.push_back(batch.ask(atspi::ProcessIdOf(name)));
    }
    batch.wait();
    std::vector<std::optional<std::int32_t>> pids;
    for (const auto& answer : answers) {
        if (const auto pid = answer.read()) {
            pids.emplace_back(outsideOfSandbox(static_cast<std::int32_t>(*pid), wanted));
        } else {
            pids.push_back(atspi::IsNobodyThere(pid.error()) ? std::optional(0) : std::nullopt);
        }
    }
    return pids;
}

std::int32_t Applications::outsideOfSandbox(std::int32_t pid, const std::vector<std::int32_t>& wanted) {
    if (!sandboxes_.isProxy(pid)) {
        return pid;
    }
    const std::int32_t program = sandboxes_.programBehind(pid, wanted);
    const std::lock_guard lock(mutex_);
    if (program == 0 && proxiesInTheWay_.insert(pid).second) {
        TLOG_WARN(
            "A program that the accessibility bus knows as the proxy with process id {} runs in a sandbox, "
            "and which process it is cannot be found out; if it is a browser, it cannot be read. Start the "
            "browser as an ordinary Flatpak, or from a package that brings no proxy",
            pid);
    }
    return program;
}

// The names that belong to one of the processes.
Applications::Names Applications::ofProcesses(const std::vector<std::string>& busNames,
                                              const std::vector<std::int32_t>& pids,
                                              cmn::bus::Deadline deadline) {
    const auto owners = processIds(busNames, deadline, pids);
    Names names;
    for (std::size_t i = 0; i < owners.size(); ++i) {
        if (owners[i] && Contains(pids, *owners[i])) {
            names.emplace(*owners[i], busNames[i]);
        }
    }
    return names;
}

// A registry that was restarted does not know the applications that were there before. Only names that have
// an application at their accessibility root count: a process may also be on the bus to look.
Applications::Names Applications::unregistered(const std::vector<std::string>& registered,
                                               const std::vector<std::int32_t>& pids,
                                               cmn::bus::Deadline deadline) {
    auto others = cmn::bus::AskAndWait(connection_, atspi::Names(), deadline);
    if (!others) {
        return {};
    }
    std::erase_if(*others, [&](const std::string& name) {
        return !name.starts_with(':') || Contains(registered, name);
    });
    Names candidates = ofProcesses(*others, pids, deadline);
    cmn::bus::Batch batch(connection_, deadline);
    std::vector<std::pair<Names::iterator, cmn::bus::Batch::Answer<atspi::Role>>> roles;
    for (auto candidate = candidates.begin(); candidate != candidates.end(); ++candidate) {
        roles.emplace_back(candidate, batch.ask(atspi::RoleOf({candidate->second, atspi::kRootPath})));
    }
    batch.wait();
    for (const auto& [candidate, answer] : roles) {
        const auto role = answer.read();
        if (!role || *role != atspi::kRoleApplication) {
            candidates.erase(candidate);
        }
    }
    return candidates;
}

std::string Applications::busName(std::int32_t pid, cmn::bus::Deadline deadline) {
    lookUp({pid}, deadline);
    return knownBusName(pid);
}

std::string Applications::knownBusName(std::int32_t pid) const {
    const std::lock_guard lock(mutex_);
    return Find(names_, pid);
}

void Applications::lookUp(const std::vector<std::int32_t>& pids, cmn::bus::Deadline deadline) {
    std::vector<std::int32_t> wanted;
    {
        const std::lock_guard lock(mutex_);
        std::copy_if(pids.begin(), pids.end(), std::back_inserter(wanted),
                     [this](std::int32_t pid) { return !names_.contains(pid); });
    }
    if (wanted.empty()) {
        return;
    }
    const auto known = registered(deadline).value_or(std::vector<std::string>());
    Names found = ofProcesses(known, wanted, deadline);
    std::erase_if(wanted, [&](std::int32_t pid) { return found.contains(pid); });
    if (!wanted.empty()) {
        found.merge(unregistered(known, wanted, deadline));
    }
    const std::lock_guard lock(mutex_);
    for (const auto& [pid, name] : found) {
        names_.insert_or_assign(pid, name);  // the latest of several
    }
}

void Applications::forget(std::int32_t pid, const std::string& busName) {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(pid);
    if (found != names_.end() && found->second == busName) {
        names_.erase(found);
        emptyReads_.erase(pid);
    }
}

void Applications::noteWindowContent(std::int32_t pid, bool empty) {
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

void Applications::keepOnly(const std::vector<std::int32_t>& pids) {
    const std::lock_guard lock(mutex_);
    for (auto* const counts : {&emptyReads_, &absences_}) {
        std::erase_if(*counts, [&](const auto& entry) { return !Contains(pids, entry.first); });
    }
}

void Applications::notePresence(std::int32_t pid) {
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

}  // namespace useragent
