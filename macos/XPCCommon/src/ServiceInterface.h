#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <utility>

#import "common_mac/standard_errors.h"
#include "macos_usercommon/MacXPCInterface.h"
#import "macos_usercommon/MacXPCPeer.h"
#include "usercommon/CallNoThrow.h"

namespace cmn {

// A service's interface: `Proxy` is what its clients hold, `Exported` is the class of the object that peers
// call; it is made by `initWithService:`.
template <typename Protocol, typename Proxy, typename Exported>
class ServiceInterface final : public MacXPCInterface {
 public:
    using CreateInterface = NSXPCInterface* (*)();

    explicit ServiceInterface(CreateInterface createInterface) : createInterface_(createInterface) {}

    NSXPCInterface* createInterface() const override { return createInterface_(); }
    id createExportedObject(const std::shared_ptr<XPCVersioning>& object) const override {
        auto service = std::dynamic_pointer_cast<Protocol>(object);
        return service ? [[Exported alloc] initWithService:std::move(service)] : nil;
    }
    std::shared_ptr<XPCVersioning> createProxy(id remote) const override {
        return std::make_shared<Proxy>(remote);
    }

 private:
    const CreateInterface createInterface_;
};

// Sends a message to a peer, on any thread: what the platform makes for it goes when it is sent.
// `send` holds a reply by value: a block in a lambda that refers to a variable refers to it too, and is
// called later.
template <typename Action>
void SendMessage(const char* message, const Action& send) {
    @autoreleasepool {
        WithStandardErrors(message, send);
    }
}

// Runs what a peer's message asks for, with the peer as the current one; an exception ends that message only.
// Its reply is then not sent.
template <typename Action>
void AnswerNoThrow(const char* message, Action action) {
    CallNoThrow(message, [&] {
        const XPCPeerScope scope(PeerOf([NSXPCConnection currentConnection]));
        action();
    });
}

}  // namespace cmn
