#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

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

    // Three quarters of the time are for the connection, the rest is for a question that follows. A bus that
    // could not be reached once is not tried again: one that hangs costs its time once.
    Connected system(cmn::bus::Deadline deadline) { return connection(systemAddress_, deadline); }
    Connected session(cmn::bus::Deadline deadline) { return connection(sessionAddress_, deadline); }
    Connected connection(const std::string& addresses, cmn::bus::Deadline deadline);

 private:
    const std::string systemAddress_;
    const std::string sessionAddress_;
    const std::shared_ptr<cmn::bus::Loop> loop_ = std::make_shared<cmn::bus::Loop>();
    std::mutex mutex_;  // guards what follows
    std::map<std::string, Connected> connections_;
};

// Asks a service, which is not started for it, and waits for its answer. `mostBytes`: see Message::read.
template <typename Answer, typename... T>
cmn::bus::Result<Answer> AskService(cmn::bus::Connection& connection, const std::string& service,
                                    const std::string& path, const char* interface, const char* method,
                                    cmn::bus::Deadline deadline, std::size_t mostBytes,
                                    const T&... arguments) {
    const auto reply =
        connection.callAndWait(connection.makeCall(service, path, interface, method, arguments...), deadline);
    return reply ? reply->template readOne<Answer>(mostBytes) : reply.error();
}

// Asks the bus itself and waits for its answer.
template <typename Answer, typename... T>
cmn::bus::Result<Answer> AskBus(cmn::bus::Connection& connection, const char* method,
                                cmn::bus::Deadline deadline, const T&... arguments) {
    namespace bus = cmn::bus;
    return AskService<Answer>(connection, bus::kBusName, bus::kBusPath, bus::kBusName, method, deadline,
                              bus::kUsuallyRead, arguments...);
}

// The unique name of who has this one; nothing when nobody has.
cmn::bus::Result<std::optional<std::string>> OwnerOf(cmn::bus::Connection& connection,
                                                     const std::string& name, cmn::bus::Deadline deadline);
// Whose that peer is.
cmn::bus::Result<uid_t> UserOf(cmn::bus::Connection& connection, const std::string& uniqueName,
                               cmn::bus::Deadline deadline);

// The object of one of the product's services: its name as a path.
std::string PathOf(std::string service);

// What the error says, else its name.
std::string Words(const cmn::bus::Error& error);
// An error as the end of a sentence whose subject is the service: "is not there", "does not answer", ...
std::string Described(const cmn::bus::Error& error);

}  // namespace ctl
