#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cmn {

// One way to reach a message bus: a local socket.
struct BusAddress {
    std::string address;     // as the bus library wants it
    std::string socketName;  // file path, or a leading NUL and a name of the abstract name space
};

// The local sockets of a D-Bus address list ("unix:path=/a;unix:abstract=b"), in order. Other transports are
// left out: they cannot be asked whether they answer without waiting for them.
std::vector<BusAddress> ParseBusAddresses(std::string_view list);

// The address lists of the two well-known buses: from the environment, else the usual sockets. Empty when
// unknown.
std::string SystemBusAddress();
std::string SessionBusAddress();

}  // namespace cmn
