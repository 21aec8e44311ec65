#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "support/UnansweredCalls.h"
#include "usercommon/XPCServer.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr cmn::XPCPeer kAlice{.userID = 1000, .processID = 10};
constexpr cmn::XPCPeer kBob{.userID = 1001, .processID = 11};

TEST(CurrentXPCPeerTest, IsNobodyOutsideOfADelivery) {
    EXPECT_EQ(cmn::CurrentXPCPeer(), std::nullopt);
}

TEST(CurrentXPCPeerTest, IsTheInnermostDeliverysPeer) {
    {
        const cmn::XPCPeerScope outer(kAlice);
        EXPECT_EQ(cmn::CurrentXPCPeer(), kAlice);
        {
            const cmn::XPCPeerScope inner(kBob);
            EXPECT_EQ(cmn::CurrentXPCPeer(), kBob);
            const cmn::XPCPeerScope unknown(std::nullopt);
            EXPECT_EQ(cmn::CurrentXPCPeer(), std::nullopt) << "not the one around it";
        }
        EXPECT_EQ(cmn::CurrentXPCPeer(), kAlice);
    }
    EXPECT_EQ(cmn::CurrentXPCPeer(), std::nullopt);
}

TEST(CurrentXPCPeerTest, EndsWithADeliveryThatThrows) {
    EXPECT_THROW(
        {
            const cmn::XPCPeerScope scope(kAlice);
            throw std::runtime_error("message failed");
        },
        std::runtime_error);
    EXPECT_EQ(cmn::CurrentXPCPeer(), std::nullopt);
}

TEST(CurrentXPCPeerTest, IsEachThreadsOwn) {
    const cmn::XPCPeerScope scope(kAlice);
    std::optional<cmn::XPCPeer> elsewhere = kBob;
    std::thread([&] { elsewhere = cmn::CurrentXPCPeer(); }).join();
    EXPECT_EQ(elsewhere, std::nullopt);
}

// Notes who is there when.
class PeerServer : public cmn::XPCServer, public cmn::XPCVersioning {
 public:
    using XPCServer::XPCServer;

    bool shouldAcceptNewConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override {
        offered.push_back(connection->peer());
        connection->setExportedInterface(std::make_shared<fake::PlainInterface>());
        connection->setExportedObject(std::shared_ptr<cmn::XPCVersioning>(shared_from_this(), this));
        connection->resume();
        return true;
    }
    void version(std::function<void(const std::string&)> /*reply*/) override {
        asked.push_back(cmn::CurrentXPCPeer());
    }

    std::vector<std::optional<cmn::XPCPeer>> offered, asked;
};

TEST(FakeXPCTransportTest, AServiceKnowsItsPeersBeforeAndDuringTheirMessages) {
    const auto transport = std::make_shared<fake::XPCTransport>();
    const auto server = std::make_shared<PeerServer>(transport, "com.example.Service");
    server->start();
    const auto first = transport->lastListener()->connectPeer(kAlice);
    const auto second = transport->lastListener()->connectPeer(kAlice);
    const auto unknown = transport->lastListener()->connectPeer();
    EXPECT_THAT(server->offered, ElementsAre(first->peer(), second->peer(), std::nullopt));
    EXPECT_EQ(first->peer()->userID, kAlice.userID);
    EXPECT_NE(first->peer(), second->peer()) << "the connections of one process are told apart";
    for (const auto& connection : {second, first, unknown}) {
        connection->deliver<cmn::XPCVersioning>([](auto& service) { service.version(nullptr); });
    }
    EXPECT_THAT(server->asked, ElementsAre(second->peer(), first->peer(), std::nullopt));
}

TEST(FakeXPCTransportTest, AClientKnowsTheOwnerOfTheServicesName) {
    fake::XPCTransport transport;
    EXPECT_EQ(transport.createConnection("a", cmn::XPCConnectionOptions::none)->peer(), std::nullopt);
    transport.service = cmn::XPCPeer{.userID = 0, .processID = 1};
    EXPECT_EQ(transport.createConnection("a", cmn::XPCConnectionOptions::none)->peer(), transport.service);
}

TEST(FakeXPCTransportTest, AProxyLearnsItsDeadline) {
    std::vector<std::chrono::nanoseconds> deadlines;
    const auto makeProxy = [&](const cmn::RemoteErrorHandler&, std::chrono::nanoseconds deadline) {
        deadlines.push_back(deadline);
        return nullptr;
    };
    fake::XPCTransport transport;
    transport.makeProxy = makeProxy;
    const auto connection = transport.createConnection("", cmn::XPCConnectionOptions::none);
    connection->resume();
    const auto onError = [](const cmn::RemoteError&) {};
    connection->remoteObjectProxy(onError);
    connection->remoteObjectProxy(onError, 5s);
    EXPECT_THAT(deadlines, ElementsAre(cmn::kNoRequestDeadline, 5s));
}

class UnansweredCallsTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::function<void(int)> reply() {
        return [this, kept = alive](int answer) { answers.push_back(answer); };
    }

    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    fake::UnansweredCalls calls{dispatch};
    std::vector<int> answers;
    std::shared_ptr<int> alive = std::make_shared<int>();
};

TEST_F(UnansweredCallsTest, AreAnsweredOnceBeforeTheirLimit) {
    const auto answer = calls.keep(calls.limit(100ms), reply());
    EXPECT_EQ(calls.count(), 1U);
    dispatch->advance(100ms - 1ns);
    answer(1);
    answer(2);
    EXPECT_THAT(answers, ElementsAre(1));
    EXPECT_EQ(calls.count(), 0U);
}

TEST_F(UnansweredCallsTest, AreDestroyedAtTheirLimitAndNotAnsweredAnyMore) {
    const auto answer = calls.keep(calls.limit(100ms), reply());
    EXPECT_EQ(alive.use_count(), 2);
    dispatch->advance(100ms);
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_EQ(calls.count(), 0U);
    answer(1);
    EXPECT_THAT(answers, ElementsAre());
}

TEST_F(UnansweredCallsTest, WithoutALimitWaitForEver) {
    const auto answer = calls.keep(calls.limit(cmn::kNoRequestDeadline), reply());
    dispatch->advance(24h);
    EXPECT_EQ(calls.count(), 1U);
    answer(1);
    EXPECT_THAT(answers, ElementsAre(1));
    EXPECT_FALSE(calls.isOver(calls.limit(cmn::kNoRequestDeadline)));
}

}  // namespace
