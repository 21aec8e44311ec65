#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "accessibility/Sandboxes.h"
#include "linux_bus/Connection.h"

namespace useragent {

// What is known about the applications on the accessibility bus, by process id. Any thread.
class Applications {
 public:
    explicit Applications(std::shared_ptr<cmn::bus::Connection> connection)
        : connection_(std::move(connection)) {}

    // The unique bus name of the process's application, looked up when it is not known yet. Empty when the
    // process has none or the lookup takes too long.
    std::string busName(std::int32_t pid, cmn::bus::Deadline deadline);

    // The same without asking; empty when it is not known.
    std::string knownBusName(std::int32_t pid) const;

    // Makes the bus names of all these processes known with one lookup.
    void lookUp(const std::vector<std::int32_t>& pids, cmn::bus::Deadline deadline);

    // The name turned out to belong to nobody any more.
    void forget(std::int32_t pid, const std::string& busName);

    // Tell the log, once for each process, about one whose window stays without content, and about one that
    // stays away from the bus. The latter is to be called once in a polling cycle.
    void noteWindowContent(std::int32_t pid, bool empty);
    void notePresence(std::int32_t pid);
    // Counts anew for all other processes: the id of one that has ended may be that of another one later.
    void keepOnly(const std::vector<std::int32_t>& pids);

    // The unique names of the applications that the registry lists, in its order. Nothing when it does not
    // answer, which is said in the log once, or when the deadline is over.
    std::optional<std::vector<std::string>> registered(cmn::bus::Deadline deadline);

    // The process ids of the owners of those names; 0 for a name without one, nothing where the bus did not
    // answer. Where the owner is a sandbox's proxy, that of the program behind it, preferably one of
    // `wanted`; 0 when it cannot be told, which is said in the log once.
    std::vector<std::optional<std::int32_t>> processIds(const std::vector<std::string>& busNames,
                                                        cmn::bus::Deadline deadline,
                                                        const std::vector<std::int32_t>& wanted = {});

 private:
    using Names = std::multimap<std::int32_t, std::string>;  // by process id; the latest last

    Names ofProcesses(const std::vector<std::string>& busNames, const std::vector<std::int32_t>& pids,
                      cmn::bus::Deadline deadline);
    Names unregistered(const std::vector<std::string>& registered, const std::vector<std::int32_t>& pids,
                       cmn::bus::Deadline deadline);
    std::int32_t outsideOfSandbox(std::int32_t pid, const std::vector<std::int32_t>& wanted);

    // Tells the log when the registry begins to fail and when it answers again.
    void noteRegistry(const cmn::bus::Error* error);

    const std::shared_ptr<cmn::bus::Connection> connection_;
    const Sandboxes sandboxes_;

    mutable std::mutex mutex_;  // guards what follows
    std::map<std::int32_t, std::string> names_;
    std::map<std::int32_t, int> emptyReads_;
    std::map<std::int32_t, int> absences_;
    std::set<std::int32_t> proxiesInTheWay_;  // those that the log was told about
    bool registryFails_ = false;
};

}  // namespace useragent
