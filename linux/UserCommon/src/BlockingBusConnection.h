#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <chrono>
#include <string>

namespace cmn {

// A private connection to a message bus for a caller that waits for its answers. Needs no event loop. One
// thread at a time.
class BlockingBusConnection {
 public:
    using Clock = std::chrono::steady_clock;

    // Throws std::runtime_error when no bus of the address list answers. The deadline is for each of the
    // answers of a bus.
    BlockingBusConnection(const std::string& addresses, std::chrono::milliseconds busDeadline);
    // Leaves the bus.
    ~BlockingBusConnection();
    BlockingBusConnection(const BlockingBusConnection&) = delete;
    BlockingBusConnection& operator=(const BlockingBusConnection&) = delete;

    const std::string& uniqueName() const { return uniqueName_; }
    bool isConnected() const { return connection_.isConnected(); }

    // The answer, or an error. One that the library made, also when nobody answers until the deadline, has no
    // sender.
    QDBusMessage call(const QDBusMessage& message, Clock::time_point deadline) const;

 private:
    QDBusConnection connection_;
    std::string uniqueName_;
};

}  // namespace cmn
