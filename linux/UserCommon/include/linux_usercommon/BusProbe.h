#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "linux_usercommon/BusAddress.h"
#include "linux_usercommon/TaskPool.h"

namespace cmn {

// Finds the first of the addresses behind which a bus answers the authentication and the first call of a
// client. The bus library connects with a blocking call on a thread that all its connections share: it is
// only let near a bus that is alive.
struct BusProbeResult {
    std::optional<std::string> address;
    std::string failure;     // why there is none
    bool saidHello = false;  // false for a bus that wants another kind of authentication: it got no call
};
using BusProbeHandler = std::function<void(const BusProbeResult&)>;

// Calls the handler once on a thread of the pool, at the latest when the deadline has passed for each
// address.
void ProbeBus(const std::shared_ptr<TaskPool>& pool, std::vector<BusAddress> addresses,
              std::chrono::milliseconds deadline, BusProbeHandler handler);

// The same on the calling thread, which waits. It gives up as soon as `goOn`, asked every few milliseconds,
// says no. Makes no thread.
BusProbeResult ProbeBus(
    std::vector<BusAddress> addresses, std::chrono::milliseconds deadline,
    const std::function<bool()>& goOn = [] { return true; });

}  // namespace cmn
