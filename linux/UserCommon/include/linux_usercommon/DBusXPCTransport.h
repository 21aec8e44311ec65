#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "linux_usercommon/LinuxDispatch.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

class BusChannel;
struct BusSettings;

enum class DBusBus { system, session };

enum class DBusListenerState {
    listening,
    failed,  // the bus or the name could not be had
    lost     // the bus is gone, or the name
};

// Once for each time that a listener begins or ceases to listen. It goes on trying.
struct DBusListenerEvent {
    std::string machServiceName;
    DBusListenerState state;
    std::string reason;  // for people; empty when listening
};

struct DBusXPCOptions {
    DBusBus listenerBus = DBusBus::system;
    // Bus address lists; empty: DBUS_SYSTEM_BUS_ADDRESS and DBUS_SESSION_BUS_ADDRESS, else the usual sockets.
    std::string systemBusAddress = {};
    std::string sessionBusAddress = {};
    // Told what became of a listener, besides the line in the log. Called on a queue of its own.
    std::function<void(const DBusListenerEvent&)> onListenerEvent = {};
    // How long the bus may take to let a client in, and for each of its answers.
    std::chrono::milliseconds connectDeadline{4000};
    std::chrono::milliseconds busDeadline{5000};
    // Longest wait for the answer to a message. Callers have shorter limits of their own; this one only makes
    // sure that nothing is kept for ever.
    std::chrono::milliseconds replyDeadline{30'000};
};

// Named services over D-Bus: the mach service name is the well-known bus name. Privileged connections go to
// the system bus, others to the session bus; every connection has a bus connection of its own, in the loop of
// the dispatch. No caller ever waits for a bus.
class DBusXPCTransport final : public XPCTransport {
 public:
    explicit DBusXPCTransport(std::shared_ptr<LinuxDispatch> dispatch, DBusXPCOptions options = {});
    // Calls `stop`.
    ~DBusXPCTransport() override;

    // Invalidates the connections and listeners that are left, also those that only proxies hold. To be
    // called by the owner before the program ends when others still hold this object then.
    void stop();

    std::shared_ptr<XPCConnection> createConnection(const std::string& machServiceName,
                                                    XPCConnectionOptions options) override;
    std::shared_ptr<XPCListener> createListener(const std::string& machServiceName) override;

 private:
    BusSettings busSettings(DBusBus bus) const;

    const std::shared_ptr<LinuxDispatch> dispatch_;
    const DBusXPCOptions options_;
    std::mutex mutex_;                                 // guards what follows
    std::vector<std::weak_ptr<BusChannel>> channels_;  // live on with their proxies
    std::vector<std::weak_ptr<XPCListener>> listeners_;
};

}  // namespace cmn
