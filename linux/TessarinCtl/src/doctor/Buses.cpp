#include "doctor/Buses.h"

#include <algorithm>
#include <utility>

namespace ctl {

namespace bus = cmn::bus;

Buses::~Buses() {
    loop_->stop();
}

Buses::Connected Buses::connection(const std::string& address, bus::Deadline deadline) {
    const std::lock_guard lock(mutex_);
    if (const auto known = connections_.find(address); known != connections_.end()) {
        return known->second;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - bus::Clock::now());
    // A part of it is for the question that follows.
    const auto patience = std::max(left * 3 / 4, std::chrono::milliseconds(1));
    return connections_
        .emplace(address, address.empty() ? Connected(bus::Error{bus::error::kFailed, "it has no address"})
                                          : bus::Connection::openAndWait(
                                                loop_, {.address = address, .connectDeadline = patience}))
        .first->second;
}

bus::Result<std::optional<Owner>> OwnerOf(const std::shared_ptr<bus::Connection>& connection,
                                          const std::string& name, bus::Deadline deadline) {
    const auto ask = [&](const char* member, const std::string& argument) {
        return connection->callAndWait(
            connection->makeCall(bus::kBusName, bus::kBusPath, bus::kBusName, member, argument), deadline);
    };
    const auto owner = ask("GetNameOwner", name);
    if (!owner) {
        return owner.error().is(bus::error::kNameHasNoOwner)
                   ? bus::Result<std::optional<Owner>>(std::optional<Owner>())
                   : owner.error();
    }
    const auto uniqueName = owner->readOne<std::string>();
    if (!uniqueName) {
        return uniqueName.error();
    }
    const auto answer = ask("GetConnectionUnixUser", *uniqueName);
    const auto user = answer ? answer->readOne<std::uint32_t>() : answer.error();
    return user ? bus::Result<std::optional<Owner>>(Owner{*uniqueName, *user}) : user.error();
}

std::string Words(const bus::Error& error) {
    return error.message.empty() ? error.name : error.message;
}

}  // namespace ctl
