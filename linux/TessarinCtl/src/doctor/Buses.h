#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "linux_bus/Batch.h"
#include "linux_bus/Connection.h"

namespace ctl {

// Connections to message buses, made when they are first asked for and shared. Any thread.
class Buses {
 public:
    using Connected = cmn::bus::Result<std::shared_ptr<cmn::bus::Connection>>;

    Buses(std::string systemAddress, std::string sessionAddress)
        : systemAddress_(std::move(systemAddress)), sessionAddress_(std::move(sessionAddress)) {}
    ~Buses();
    Buses(const Buses&) = delete;
    Buses& operator=(const Buses&) = delete;

    // A bus that could not be reached once is not tried again: one that hangs costs its time once.
    Connected system(cmn::bus::Deadline deadline) { return connection(systemAddress_, deadline); }
    Connected session(cmn::bus::Deadline deadline) { return connection(sessionAddress_, deadline); }
    Connected connection(const std::string& address, cmn::bus::Deadline deadline);

 private:
    const std::string systemAddress_;
    const std::string sessionAddress_;
    const std::shared_ptr<cmn::bus::Loop> loop_ = std::make_shared<cmn::bus::Loop>();
    std::mutex mutex_;  // guards what follows
    std::map<std::string, Connected> connections_;
};

// Who has a name.
struct Owner {
    std::string uniqueName;
    uid_t user = 0;
};
// Nothing when nobody has it.
cmn::bus::Result<std::optional<Owner>> OwnerOf(const std::shared_ptr<cmn::bus::Connection>& connection,
                                               const std::string& name, cmn::bus::Deadline deadline);

// What the error says, else its name.
std::string Words(const cmn::bus::Error& error);

}  // namespace ctl
