#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "HostOptions.h"
#include "usercommon/Dispatch.h"
#include "usercommon/XPCConnection.h"

namespace host {

enum class ListenerState {
    listening,
    failed,  // it never listened
    lost     // it does not listen any more, and goes on trying
};

// Once for each time that a service begins or ceases to listen.
struct ListenerEvent {
    std::string service;
    ListenerState state;
    std::string reason;  // for people; empty when listening
};

// What the host asks of the system. Used on the main thread where nothing else is said.
class HostPlatform {
 public:
    using ListenerHandler = std::function<void(const ListenerEvent&)>;
    // The next bytes of the standard input; nothing at its end, once.
    using InputHandler = std::function<void(std::optional<std::string_view>)>;

    virtual ~HostPlatform() = default;

    // First of all, once. `handler` is called on any thread. Throws std::runtime_error for a bus that the
    // system does not have.
    virtual void connect(HostBus bus, ListenerHandler handler) = 0;
    // Where the services listen, for people.
    virtual std::string place() const = 0;
    virtual std::shared_ptr<cmn::Dispatch> dispatch() = 0;
    virtual std::shared_ptr<cmn::XPCTransport> transport() = 0;
    // Runs a question that may wait for an agent's answer, without holding up anything else. Any thread.
    virtual void ask(std::function<void()> question) = 0;
    // The services were started. For a transport that does not tell by itself what becomes of its listeners.
    virtual void started() {}
    // Ends all connections, then lets every task end before what it uses goes.
    virtual void stop() = 0;

    // Lets the main thread work until `end` or a signal that ends programs; returns the exit status.
    virtual int run(InputHandler input) = 0;
    virtual void end(int status) = 0;
};

// Before any other thread starts. The arguments must outlive the result.
std::unique_ptr<HostPlatform> CreateHostPlatform(int& argc, char** argv);

}  // namespace host
