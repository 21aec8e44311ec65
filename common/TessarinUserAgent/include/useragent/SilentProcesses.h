#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <vector>

#include "useragent/Accessibility.h"

namespace useragent {

// Remembers which processes left a read unanswered until its deadline, so that nobody waits for them twice.
// For platforms where only another read tells whether a process answers again. Any thread.
class SilentProcesses {
 public:
    bool isSilent(std::int32_t pid) const;

    // What a read of the process gave; `cannotComplete` makes it silent.
    void note(std::int32_t pid, AXError result);

    // Asks each of `pids` with `read`, which may wait for its deadline and is called without a lock, and
    // forgets all other processes.
    void probe(const std::vector<std::int32_t>& pids, const std::function<AXError(std::int32_t pid)>& read);

 private:
    void markSilent(std::int32_t pid);
    void markAnswering(std::int32_t pid);

    mutable std::mutex mutex_;  // guards pids_
    std::set<std::int32_t> pids_;
};

}  // namespace useragent
