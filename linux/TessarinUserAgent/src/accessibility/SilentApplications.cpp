#include "accessibility/SilentApplications.h"

#include "accessibility/AtspiQueries.h"
#include "common/log.h"

namespace useragent {

bool SilentApplications::isSilent(const std::string& busName) const {
    const std::lock_guard lock(mutex_);
    return pids_.contains(busName);
}

void SilentApplications::note(const std::string& busName, std::int32_t pid) {
    {
        const std::lock_guard lock(mutex_);
        if (!pids_.emplace(busName, pid).second) {
            return;
        }
    }
    TLOG_WARN("The application with process id {} does not answer", pid);
    ping(busName);
}

void SilentApplications::ping(const std::string& busName) {
    if (const auto connection = connection_.lock()) {
        cmn::bus::Ask<atspi::Done>(*connection, atspi::PingOf(busName), cmn::bus::Deadline::max(),
                                   [weak = weak_from_this(), busName](const auto& answer) {
                                       if (const auto self = weak.lock()) {
                                           self->answered(busName, answer ? nullptr : &answer.error());
                                       }
                                   });
    }
}

void SilentApplications::answered(const std::string& busName, const cmn::bus::Error* error) {
    if (error != nullptr && atspi::IsTimeout(*error)) {
        // The bus itself gives up after a while. An application that died shows at the next ping.
        ping(busName);
        return;
    }
    std::int32_t pid = 0;
    {
        const std::lock_guard lock(mutex_);
        pid = pids_.extract(busName).mapped();
    }
    if (error == nullptr || atspi::ErrorOf(*error) != AXError::cannotComplete) {  // else it is gone
        TLOG_INFO("The application with process id {} answers again", pid);
        onRecovered_(busName);
    }
}

}  // namespace useragent
