#pragma once

#import <Foundation/Foundation.h>

#include <memory>

#include "usercommon/XPCConnection.h"

NS_ASSUME_NONNULL_BEGIN

namespace cmn {

// How one service protocol travels over NSXPC. Any thread.
class MacXPCInterface : public XPCInterface {
 public:
    // A new description each time.
    virtual NSXPCInterface* createInterface() const = 0;

    // The object that answers the protocol's messages by calling `object`, which it owns. Nil when `object`
    // is not of the protocol.
    virtual id _Nullable createExportedObject(const std::shared_ptr<XPCVersioning>& object) const = 0;

    // A proxy whose calls become messages to `remote`, a remote object of the protocol.
    virtual std::shared_ptr<XPCVersioning> createProxy(id remote) const = 0;
};

}  // namespace cmn

NS_ASSUME_NONNULL_END
