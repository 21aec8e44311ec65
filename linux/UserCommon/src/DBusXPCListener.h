#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "ClientChannel.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/SerialQueue.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// A service's name on the bus. Each bus peer that sends a message becomes a connection, until it leaves the
// bus. It never gives up: a bus that is lost, or a name that another process has, is tried for again every
// three seconds.
class DBusXPCListener final : public XPCListener, public std::enable_shared_from_this<DBusXPCListener> {
 public:
    struct Parts {
        BusSettings bus;
        std::function<std::shared_ptr<SerialQueue>()> createQueue;
        std::function<void(const DBusListenerEvent&)> onEvent;
    };

    DBusXPCListener(Parts parts, std::string machServiceName);
    ~DBusXPCListener() override;
    DBusXPCListener(const DBusXPCListener&) = delete;
    DBusXPCListener& operator=(const DBusXPCListener&) = delete;

    void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override;
    void resume() override;
    void invalidate() override;

 private:
    class Core;

    std::shared_ptr<XPCListenerDelegate> delegate() const;

    mutable std::mutex mutex_;  // guards delegate_
    std::weak_ptr<XPCListenerDelegate> delegate_;
    const std::shared_ptr<bus::Loop> loop_;
    const std::shared_ptr<Core> core_;
};

}  // namespace cmn
