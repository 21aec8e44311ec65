#pragma once

#import <Foundation/Foundation.h>

#include <exception>
#include <memory>

#include "common/log.h"
#include "macos_usercommon/MacXPCInterface.h"
#import "macos_usercommon/MacXPCPeer.h"

namespace cmn {

// A service's interface: `Proxy` is what its clients hold, `Exported` is the class of the object that peers
// call; it is made by `initWithService:`.
template <typename Protocol, typename Proxy>
class ServiceInterface final : public MacXPCInterface {
 public:
    using CreateInterface = NSXPCInterface* (*)();
    using CreateExported = id (*)(std::shared_ptr<Protocol> service);

    ServiceInterface(CreateInterface createInterface, CreateExported createExported)
        : createInterface_(createInterface), createExported_(createExported) {}

    NSXPCInterface* createInterface() const override { return createInterface_(); }
    id createExportedObject(const std::shared_ptr<XPCVersioning>& object) const override {
        auto service = std::dynamic_pointer_cast<Protocol>(object);
        return service ? createExported_(std::move(service)) : nil;
    }
    std::shared_ptr<XPCVersioning> createProxy(id remote) const override {
        return std::make_shared<Proxy>(remote);
    }

 private:
    const CreateInterface createInterface_;
    const CreateExported createExported_;
};

// Runs what a peer's message asks for, with the peer as the current one; an exception ends that message only.
// Its reply is then not sent.
template <typename Action>
void AnswerNoThrow(const char* message, Action action) {
    try {
        const XPCPeerScope scope(PeerOf([NSXPCConnection currentConnection]));
        action();
    } catch (const std::exception& error) {
        TLOG_ERROR("{} -- failed: {}", message, error.what());
    } catch (...) {
        TLOG_ERROR("{} -- failed: {}", message, "not a standard exception");
    }
}

}  // namespace cmn
