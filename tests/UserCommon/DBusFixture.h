#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "EchoProtocol.h"
#include "support/BusWorld.h"

// The service of the tests. Counts what happens to it; its hooks let a test hold it up. Thread-safe.
class EchoServer : public cmn::XPCServer, public EchoProtocol {
 public:
    using XPCServer::XPCServer;

    bool shouldAcceptNewConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override;
    void version(std::function<void(const std::string&)> reply) override { reply("1.0"); }
    void records(const std::string& text, std::function<void(const Records&)> reply) override;
    void names(std::function<void(const std::vector<std::string>&)> reply) override {
        reply({"a", "", "\xc3\xa4"});
    }
    void flags(std::function<void(const Flags&)> reply) override { reply({{"no", false}, {"yes", true}}); }
    void number(const std::string& text, std::function<void(std::int32_t)> reply) override;
    void note(const std::string& text) override;
    void check(const std::string& text, std::shared_ptr<EchoDelegate> delegate) override;

    std::vector<std::string> notes() const { return notes_.all(); }

    std::atomic<bool> accepts{true};
    std::atomic<int> accepted{0};
    std::atomic<int> invalidated{0};
    std::function<void(const std::string& text)> onNote;  // set before it is started
    std::function<void(const std::string& text, std::function<void(std::int32_t)> reply)> onNumber;

 private:
    const fake::Recorder<std::string> notes_;
};

// What happened to a client's connection. Handlers that are still queued when this ends harm nobody.
class ConnectionEvents {
    struct State {
        std::atomic<int> invalidations{0};
        std::atomic<int> interruptions{0};
        std::atomic<int> errors{0};
    };
    const std::shared_ptr<State> state_ = std::make_shared<State>();
    const fake::Recorder<cmn::RemoteError> errors_;

 public:
    const std::atomic<int>& invalidations = state_->invalidations;
    const std::atomic<int>& interruptions = state_->interruptions;
    const std::atomic<int>& errors = state_->errors;

    void watch(cmn::XPCConnection& connection) const;
    cmn::RemoteErrorHandler onError() const;
    // Of the latest.
    std::string error() const { return errors_.last().description; }
    std::string suggestion() const { return errors_.last().recoverySuggestion; }
};

// A client's connection, what happens to it, and the service's proxy.
struct Wired {
    ConnectionEvents events;
    std::shared_ptr<cmn::XPCConnection> connection;
    std::shared_ptr<EchoProtocol> echo;
};

// Both ends in this process.
class DBusTest : public fake::BusWorld {
 protected:
    using Hooks = std::function<void(EchoServer& server)>;

    // `set` is called before it is started.
    std::shared_ptr<EchoServer> startServer(const Hooks& set = [](EchoServer&) {});
    // Not resumed.
    static Wired wire(cmn::XPCTransport& transport);
    Wired resumeClient();
    // Known to reach the service.
    Wired connect();
    // Whether the service answers.
    static bool answers(cmn::XPCConnection& connection);
};
