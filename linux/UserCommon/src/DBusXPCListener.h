#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ClientChannel.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "usercommon/SerialQueue.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

struct ListenerParts {
    BusSettings bus;
    std::function<std::shared_ptr<SerialQueue>()> createQueue;
    std::function<void(const DBusListenerEvent&)> onEvent;
};

// A service's name on the bus. Each bus peer that sends a message becomes a connection, until it leaves the
// bus. It never gives up: a bus that is lost, or a name that another process has, is tried for again every
// three seconds.
std::shared_ptr<XPCListener> MakeListener(ListenerParts parts, std::string machServiceName);

}  // namespace cmn
