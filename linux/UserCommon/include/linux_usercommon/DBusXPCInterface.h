#pragma once

#include <memory>
#include <string>

#include "linux_usercommon/DBusChannel.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// A service protocol as it travels over D-Bus: where its object is, what can be called, and the typed stubs
// of both directions.
class DBusXPCInterface : public XPCInterface {
 public:
    virtual const std::string& objectPath() const = 0;
    virtual const std::shared_ptr<const DBusInterfaceDescription>& description() const = 0;

    // A proxy of the object on the other end.
    virtual std::shared_ptr<XPCVersioning> createProxy(std::shared_ptr<DBusChannel> channel,
                                                       RemoteErrorHandler onError) const = 0;

    // Delivers messages to a local object, which it owns. Null when the object does not speak this protocol.
    virtual DBusObjectHandler createHandler(const std::shared_ptr<XPCVersioning>& object) const = 0;
};

}  // namespace cmn
