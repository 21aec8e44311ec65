#include "useragent/SilentProcesses.h"

#include <algorithm>

#include "common/log.h"

namespace useragent {

bool SilentProcesses::isSilent(std::int32_t pid) const {
    const std::lock_guard lock(mutex_);
    return pids_.contains(pid);
}

void SilentProcesses::note(std::int32_t pid, AXError result) {
    if (result == AXError::cannotComplete) {
        markSilent(pid);
    }
}

void SilentProcesses::probe(const std::vector<std::int32_t>& pids,
                            const std::function<AXError(std::int32_t pid)>& read) {
    for (const std::int32_t pid : pids) {
        if (read(pid) == AXError::cannotComplete) {
            markSilent(pid);
        } else {
            markAnswering(pid);
        }
    }
    const std::lock_guard lock(mutex_);
    std::erase_if(pids_,
                  [&](std::int32_t pid) { return std::find(pids.begin(), pids.end(), pid) == pids.end(); });
}

void SilentProcesses::markSilent(std::int32_t pid) {
    const std::lock_guard lock(mutex_);
    if (pids_.insert(pid).second) {
        TLOG_WARN("The application with process id {} does not answer", pid);
    }
}

void SilentProcesses::markAnswering(std::int32_t pid) {
    const std::lock_guard lock(mutex_);
    if (pids_.erase(pid) > 0) {
        TLOG_INFO("The application with process id {} answers again", pid);
    }
}

}  // namespace useragent
