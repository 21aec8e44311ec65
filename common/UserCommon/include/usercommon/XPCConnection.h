#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "usercommon/XPCPeer.h"

namespace cmn {

// Values are those of the platform that defined the option.
enum class XPCConnectionOptions : unsigned { none = 0, privileged = 4096 };

// Why a remote call could not be delivered or answered.
struct RemoteError {
    std::string description;
    std::string recoverySuggestion;
};
using RemoteErrorHandler = std::function<void(const RemoteError&)>;

// The caller waits for its answers for as long as it takes.
inline constexpr std::chrono::nanoseconds kNoRequestDeadline = std::chrono::nanoseconds::max();

// The one message every service of the product answers. Service protocols derive from it; the same abstract
// class serves as exported object on one end and as remote proxy on the other. A reply function is called at
// most once, on a thread of the other end's choosing; one that will not be called any more is destroyed.
class XPCVersioning {
 public:
    virtual ~XPCVersioning() = default;

    virtual void version(std::function<void(const std::string&)> reply) = 0;
};

// Describes one service protocol to the transport. Made by the functions that name a service's interface
// (for example `CreateUserAgentInterface`), opaque to everyone else.
class XPCInterface {
 public:
    virtual ~XPCInterface() = default;
};

// One connection between a client and a named service, seen from either end. Thread-safe.
// Handlers, replies and exported objects are called on the connection's private queue, one at a time, never
// on the main thread; `CurrentXPCPeer` is the sender of a message meanwhile. Destroying the connection lets
// go of all of them without calling the handlers.
//
// Both ends of a service, whose protocol `Echo` is derived from XPCVersioning and described by
// `EchoInterface`:
//
//   class EchoServer final : public XPCServer, public Echo {
//       bool shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection) override {
//           accept(connection, EchoInterface(), self<EchoServer>(), [] {}, [] {});
//           return true;
//       }
//       void echo(const std::string& text, Reply reply) override { reply(text); }
//   };
//   const auto server = std::make_shared<EchoServer>(transport, "com.example.Echo");
//   server->start();
//
//   const auto connection = transport->createConnection("com.example.Echo", XPCConnectionOptions::none);
//   connection->setRemoteObjectInterface(EchoInterface());
//   connection->resume();
//   const auto proxy = std::dynamic_pointer_cast<Echo>(connection->remoteObjectProxy(onError));
//   proxy->echo("text", [](const std::string& answer) { ... });
//
// The road of that message:
//   1. caller's thread: the proxy's method writes the message, queues it and returns.
//   2. service, transport's thread: the message is read, or answered with an error if it may not come in.
//   3. service, private queue of the connection: a new sender's connection is put to the listener's delegate,
//      then the arguments are read and the exported object is called.
//   4. any thread of the service: the object calls the reply function, which writes and queues the answer.
//   5. client, transport's thread: the answer is received, or found not to come any more.
//   6. client, private queue: the reply's handler is called, else `onError`; neither after the deadline.
class XPCConnection {
 public:
    virtual ~XPCConnection() = default;

    // The connection is gone for good: the service was absent at `resume`, the bus was lost, or `invalidate`.
    // Called at most once.
    virtual void setInvalidationHandler(std::function<void()> handler) = 0;

    // The other end went away; the connection may be used again when it is back.
    virtual void setInterruptionHandler(std::function<void()> handler) = 0;

    // To be set before `resume`.
    virtual void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) = 0;
    virtual void setExportedInterface(std::shared_ptr<const XPCInterface> interface) = 0;
    virtual void setExportedObject(std::shared_ptr<XPCVersioning> object) = 0;

    // The other end. On a service's side known before its first message is delivered, and then always the
    // same; on a client's side the owner of the service's name, nothing while nobody is known.
    virtual std::optional<XPCPeer> peer() const = 0;

    // Starts the connection; returns at once. An absent service shows up later as invalidation.
    virtual void resume() = 0;

    // Ends the connection; returns at once. The invalidation handler follows, also when the connection object
    // is let go of meanwhile.
    virtual void invalidate() = 0;

    // A proxy of the remote object as described by the remote object interface; cast it to the service
    // protocol. Calls on the proxy only queue the message. A call that cannot be delivered, or whose reply
    // never comes because the other end went away, calls `onError` instead of the reply. The proxy keeps the
    // connection's transport alive, not its handlers.
    // `deadline` is how long, from now, the caller waits for the answers of all calls made through this
    // proxy. What is not answered by then, or called later, is given up silently: neither the reply nor
    // `onError` is called, and whatever the call occupied is free at once. A transport that cannot give a
    // call up ignores the deadline.
    virtual std::shared_ptr<XPCVersioning> remoteObjectProxy(
        RemoteErrorHandler onError, std::chrono::nanoseconds deadline = kNoRequestDeadline) = 0;
};

class XPCListener;

class XPCListenerDelegate {
 public:
    virtual ~XPCListenerDelegate() = default;

    // Asked once for each new peer, before any of its messages is delivered. To accept, set the exported
    // interface and object, resume the connection and return true. A rejected peer's messages are answered
    // with an error.
    virtual bool listenerShouldAcceptNewConnection(XPCListener& listener,
                                                   const std::shared_ptr<XPCConnection>& connection) = 0;
};

// One named listener. Thread-safe. Peers are served in parallel, the messages of one peer in their order.
class XPCListener {
 public:
    virtual ~XPCListener() = default;

    // Held weakly.
    virtual void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) = 0;

    // Starts listening under the name; returns at once.
    virtual void resume() = 0;

    // Stops listening and invalidates the connections it accepted.
    virtual void invalidate() = 0;
};

// Where connections and listeners come from: one per platform, and a fake for tests.
class XPCTransport {
 public:
    virtual ~XPCTransport() = default;

    // Neither call fails nor blocks.
    virtual std::shared_ptr<XPCConnection> createConnection(const std::string& machServiceName,
                                                            XPCConnectionOptions options) = 0;
    virtual std::shared_ptr<XPCListener> createListener(const std::string& machServiceName) = 0;
};

}  // namespace cmn
