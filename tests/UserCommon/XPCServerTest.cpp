#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/FakeXPCTransport.h"
#include "support/LogCapture.h"
#include "usercommon/XPCServer.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class PlainObject : public cmn::XPCVersioning {
 public:
    void version(std::function<void(const std::string&)> reply) override { reply("1.0"); }
};

class AcceptingServer : public cmn::XPCServer {
 public:
    using XPCServer::XPCServer;

    bool shouldAcceptNewConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override {
        asked = connection;
        if (accepts) {
            connection->setExportedInterface(std::make_shared<fake::PlainInterface>());
            connection->setExportedObject(std::make_shared<PlainObject>());
            connection->resume();
        }
        return accepts;
    }

    std::shared_ptr<cmn::XPCConnection> asked;
    bool accepts = true;
};

// Serves every peer with the object, and notes what it hears of the connection.
class ServingServer : public cmn::XPCServer {
 public:
    using XPCServer::XPCServer;

    bool shouldAcceptNewConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override {
        const auto heard = told;
        accept(
            connection, interface, object, [heard] { heard->push_back("function: invalid"); },
            [heard] { heard->push_back("function: interrupted"); });
        return true;
    }
    void connectionDidInvalidate() override { told->push_back("hook: invalid"); }
    void connectionDidInterrupt() override { told->push_back("hook: interrupted"); }

    const std::shared_ptr<fake::PlainInterface> interface = std::make_shared<fake::PlainInterface>();
    const std::shared_ptr<PlainObject> object = std::make_shared<PlainObject>();
    const std::shared_ptr<std::vector<std::string>> told = std::make_shared<std::vector<std::string>>();
};

class XPCServerTest : public testing::Test {
 protected:
    std::shared_ptr<fake::XPCTransport> transport = std::make_shared<fake::XPCTransport>();
};

TEST_F(XPCServerTest, DoesNotListenByItself) {
    const auto server = std::make_shared<AcceptingServer>(transport, "com.example.Service");
    EXPECT_EQ(transport->lastListener(), nullptr);
    EXPECT_EQ(server->listener(), nullptr);
    EXPECT_EQ(server->machServiceName(), "com.example.Service");
}

TEST_F(XPCServerTest, StartListensUnderItsNameAsTheListenersDelegate) {
    const auto server = std::make_shared<AcceptingServer>(transport, "com.example.Service");
    server->start();
    ASSERT_EQ(server->listener(), transport->lastListener());
    EXPECT_EQ(transport->lastListener()->machServiceName, "com.example.Service");
    EXPECT_TRUE(transport->lastListener()->resumed);
    const auto connection = transport->lastListener()->connectPeer();
    EXPECT_NE(connection, nullptr);
    EXPECT_EQ(server->asked, connection);
}

TEST_F(XPCServerTest, PassesTheAnswerOfItsHookOn) {
    const auto server = std::make_shared<AcceptingServer>(transport, "com.example.Service");
    server->accepts = false;
    server->start();
    EXPECT_EQ(transport->lastListener()->connectPeer(), nullptr);
    EXPECT_NE(server->asked, nullptr);
}

TEST_F(XPCServerTest, StopInvalidatesAndDropsTheListener) {
    const auto server = std::make_shared<AcceptingServer>(transport, "com.example.Service");
    server->start();
    const auto listener = transport->lastListener();
    server->stop();
    EXPECT_TRUE(listener->invalidated);
    EXPECT_EQ(server->listener(), nullptr);
}

TEST_F(XPCServerTest, StopWithoutStartDoesNothing) {
    const auto server = std::make_shared<AcceptingServer>(transport, "com.example.Service");
    server->stop();
    EXPECT_EQ(server->listener(), nullptr);
}

TEST_F(XPCServerTest, TheListenerDoesNotKeepTheServerAlive) {
    auto server = std::make_shared<AcceptingServer>(transport, "com.example.Service");
    server->start();
    const auto listener = transport->lastListener();
    const std::weak_ptr<AcceptingServer> watched = server;
    server.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(listener->connectPeer(), nullptr);
}

TEST_F(XPCServerTest, RejectsEveryClientUntilOverriddenAndWarnsNotOverridden) {
    fake::LogCapture log;
    const auto server = std::make_shared<cmn::XPCServer>(transport, "com.example.Service");
    server->start();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(transport->lastListener()->connectPeer(), nullptr);
    }
    const auto lines = log.linesWith("Not overridden");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[0], AllOf(StartsWith("[ WARN] ["), HasSubstr("] XPCServer.cpp:"),
                                EndsWith(" shouldAcceptNewConnection -- Not overridden")));
}

TEST_F(XPCServerTest, ServesAnAcceptedPeerWithTheObject) {
    const auto server = std::make_shared<ServingServer>(transport, "com.example.Service");
    server->start();
    const auto connection = transport->lastListener()->connectPeer();
    ASSERT_NE(connection, nullptr);
    EXPECT_TRUE(connection->resumed());
    EXPECT_EQ(connection->exportedInterface(), server->interface);
    EXPECT_EQ(connection->exportedObject(), server->object);
}

TEST_F(XPCServerTest, TellsTheFunctionAndThenTheHookWhatHappensToAConnection) {
    const auto server = std::make_shared<ServingServer>(transport, "com.example.Service");
    server->start();
    const auto connection = transport->lastListener()->connectPeer();
    ASSERT_NE(connection, nullptr);
    connection->sendInterruption();
    EXPECT_THAT(*server->told, ElementsAre("function: interrupted", "hook: interrupted"));
    server->told->clear();
    connection->sendInvalidation();
    EXPECT_THAT(*server->told, ElementsAre("function: invalid", "hook: invalid"));
}

TEST_F(XPCServerTest, TellsTheFunctionAloneWhenTheServerIsGone) {
    auto server = std::make_shared<ServingServer>(transport, "com.example.Service");
    const auto told = server->told;
    server->start();
    const auto connection = transport->lastListener()->connectPeer();
    ASSERT_NE(connection, nullptr);
    server.reset();
    connection->sendInvalidation();
    EXPECT_THAT(*told, ElementsAre("function: invalid"));
}

TEST_F(XPCServerTest, WarnsForEachEventHookThatIsNotOverridden) {
    fake::LogCapture log;
    const auto server = std::make_shared<cmn::XPCServer>(transport, "com.example.Service");
    server->connectionDidInvalidate();
    server->connectionDidInterrupt();
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], AllOf(StartsWith("[ WARN] ["), HasSubstr("] XPCServer.cpp:"),
                                EndsWith(" connectionDidInvalidate -- Not overridden")));
    EXPECT_THAT(lines[1], AllOf(StartsWith("[ WARN] ["), HasSubstr("] XPCServer.cpp:"),
                                EndsWith(" connectionDidInterrupt -- Not overridden")));
}

}  // namespace
