#pragma once

#include <memory>
#include <optional>
#include <string>

#include "linux_bus/Connection.h"

namespace ctl {

// An error as the end of a sentence whose subject is the service: "is not there", "does not answer", ...
std::string Described(const cmn::bus::Error& error);

// A message bus, for as long as a command asks it. Every wait has a deadline; one thread.
class BusClient {
 public:
    // Waits for the bus, until the deadline at most.
    BusClient(const std::string& address, cmn::bus::Deadline deadline);
    ~BusClient();
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    // Why there is no bus; empty when there is one.
    const std::string& failure() const { return failure_; }
    // Null when there is none.
    const std::shared_ptr<cmn::bus::Connection>& connection() const { return connection_; }

    // The unique name of who has this one; nothing when nobody has.
    cmn::bus::Result<std::optional<std::string>> owner(const std::string& name, cmn::bus::Deadline deadline);

    // Asks a service, which is not started for it, and waits for its answer. `mostBytes`: see Message::read.
    template <typename Answer, typename... T>
    cmn::bus::Result<Answer> ask(const std::string& service, const std::string& path,
                                 const std::string& interface, const std::string& method,
                                 cmn::bus::Deadline deadline, std::size_t mostBytes, const T&... arguments) {
        if (!connection_) {
            return cmn::bus::Error{cmn::bus::error::kDisconnected, failure_};
        }
        const auto reply = connection_->callAndWait(
            connection_->makeCall(service, path, interface, method, arguments...), deadline);
        return reply ? reply->template readOne<Answer>(mostBytes) : reply.error();
    }

 private:
    std::shared_ptr<cmn::bus::Loop> loop_;
    std::shared_ptr<cmn::bus::Connection> connection_;
    std::string failure_;
};

}  // namespace ctl
