#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "EchoProtocol.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/WaitFor.h"
#include "usercommon/XPCServer.h"

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

    std::vector<std::string> notes() const;

    std::atomic<bool> accepts{true};
    std::atomic<int> accepted{0};
    std::atomic<int> invalidated{0};
    std::function<void(const std::string& text)> onNote;  // set before it is started
    std::function<void(const std::string& text, std::function<void(std::int32_t)> reply)> onNumber;

 private:
    mutable std::mutex mutex_;
    std::vector<std::string> notes_;
};

// What happened to a client's connection. Handlers that are still queued when this ends harm nobody.
class ConnectionEvents {
    struct State {
        std::atomic<int> invalidations{0};
        std::atomic<int> interruptions{0};
        std::atomic<int> errors{0};
        std::mutex mutex;
        std::string lastError, lastSuggestion;  // guarded by mutex
    };
    const std::shared_ptr<State> state_ = std::make_shared<State>();

 public:
    const std::atomic<int>& invalidations = state_->invalidations;
    const std::atomic<int>& interruptions = state_->interruptions;
    const std::atomic<int>& errors = state_->errors;

    void watch(cmn::XPCConnection& connection);
    cmn::RemoteErrorHandler onError();
    std::string error();
    std::string suggestion();
};

// A private bus and both ends on it, in this process.
class DBusTest : public testing::Test {
 protected:
    DBusTest();
    ~DBusTest() override;

    cmn::DBusXPCOptions options();
    std::shared_ptr<EchoServer> startServer();
    std::shared_ptr<cmn::XPCConnection> makeConnection(ConnectionEvents& events);
    // Resumed, and known to reach the service.
    std::shared_ptr<cmn::XPCConnection> connect(ConnectionEvents& events);
    static std::shared_ptr<EchoProtocol> proxy(cmn::XPCConnection& connection, ConnectionEvents& events);
    // Whether the service answers.
    static bool answers(cmn::XPCConnection& connection);

    fake::LogCapture log;
    fake::PrivateBus bus;
    std::shared_ptr<cmn::LinuxDispatch> dispatch = std::make_shared<cmn::LinuxDispatch>();
    std::vector<cmn::DBusListenerEvent> listenerEvents();
    std::shared_ptr<cmn::DBusXPCTransport> transport;
    // What the one before has made goes on until the end of the test.
    void replaceTransport(const cmn::DBusXPCOptions& options);

 private:
    std::vector<std::shared_ptr<cmn::DBusXPCTransport>> transports_;
    std::mutex mutex_;
    std::vector<cmn::DBusListenerEvent> listenerEvents_;
};
