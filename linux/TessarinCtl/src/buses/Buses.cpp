#include "buses/Buses.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <utility>

#include "common/utf8.h"

namespace ctl {

namespace bus = cmn::bus;

Buses::~Buses() {
    loop_->stop();
}

Buses::Connected Buses::connection(const std::string& addresses, bus::Deadline deadline) {
    const std::lock_guard lock(mutex_);
    if (const auto known = connections_.find(addresses); known != connections_.end()) {
        return known->second;
    }
    const auto count = std::ssize(bus::LocalAddresses(addresses));
    if (count == 0) {
        return bus::Error{bus::error::kFailed, "there is no address of such a bus"};
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - bus::Clock::now());
    const auto patience = std::max(left * 3 / 4 / count, std::chrono::milliseconds(1));
    return connections_
        .emplace(addresses,
                 bus::Connection::openAndWait(loop_, {.address = addresses, .connectDeadline = patience}))
        .first->second;
}

bus::Result<std::optional<std::string>> OwnerOf(bus::Connection& connection, const std::string& name,
                                                bus::Deadline deadline) {
    const auto owner = AskBus<std::string>(connection, "GetNameOwner", deadline, name);
    if (!owner && owner.error().is(bus::error::kNameHasNoOwner)) {
        return std::optional<std::string>();
    }
    return owner ? bus::Result<std::optional<std::string>>(*owner) : owner.error();
}

bus::Result<uid_t> UserOf(bus::Connection& connection, const std::string& uniqueName,
                          bus::Deadline deadline) {
    return AskBus<std::uint32_t>(connection, "GetConnectionUnixUser", deadline, uniqueName);
}

std::string PathOf(std::string service) {
    std::replace(service.begin(), service.end(), '.', '/');
    return '/' + std::move(service);
}

std::string Words(const bus::Error& error) {
    return error.message.empty() ? error.name : error.message;
}

std::string Described(const bus::Error& error) {
    if (error.is(bus::error::kTimeout)) {
        return "does not answer";
    }
    for (const char* const absent :
         {bus::error::kServiceUnknown, bus::error::kNameHasNoOwner, bus::error::kNoReply}) {
        if (error.is(absent)) {
            return "is not there";
        }
    }
    return (error.is(bus::error::kAccessDenied) ? "refuses: " : "answers with an error: ") +
           cmn::EscapeControls(error.message);
}

}  // namespace ctl
