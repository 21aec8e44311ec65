#pragma once

#include <memory>

#include "BusChannel.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// The connection object as clients and services hold it. Its end is the end of handlers and exported objects;
// the channel lives on while proxies use it.
class DBusXPCConnection final : public XPCConnection, public std::enable_shared_from_this<DBusXPCConnection> {
 public:
    explicit DBusXPCConnection(std::shared_ptr<BusChannel> channel);
    ~DBusXPCConnection() override;
    DBusXPCConnection(const DBusXPCConnection&) = delete;
    DBusXPCConnection& operator=(const DBusXPCConnection&) = delete;

    void setInvalidationHandler(std::function<void()> handler) override;
    void setInterruptionHandler(std::function<void()> handler) override;
    void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) override;
    void setExportedInterface(std::shared_ptr<const XPCInterface> interface) override;
    void setExportedObject(std::shared_ptr<XPCVersioning> object) override;
    std::optional<XPCPeer> peer() const override { return channel_->peer(); }
    void resume() override;
    void invalidate() override;
    std::shared_ptr<XPCVersioning> remoteObjectProxy(RemoteErrorHandler onError,
                                                     std::chrono::nanoseconds deadline) override;

 private:
    const std::shared_ptr<BusChannel> channel_;
};

}  // namespace cmn
