#include <atomic>
#include <thread>

#include "UserAgentBusFixture.h"
#include "xpccommon/UserAgentXPCClient.h"

// The user agent service when one of its ends, or the bus, leaves.
namespace {

using fake::RawPeer;
using fake::WaitFor;
using testing::ElementsAre;

using UserAgentLossTest = UserAgentBusFixture;

// Well before a question that is not answered ends. On a machine that just stands still the first attempt may
// take longer.
constexpr std::chrono::seconds kGivenUp{2};
static_assert(kGivenUp < cmn::kGetURLDeadline);

TEST_F(UserAgentLossTest, AnExtractorWhoseAgentIsGoneGivesTheEmptyURL) {
    const auto server = startServer();
    {
        RawPeer agent(bus.address());
        setExtractor(agent);
    }
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_TRUE(WaitFor([&] { return log.count("Connection has been invalidated") == 1; }));
    EXPECT_EQ(server->getURL("Safari"), "");
}

TEST_F(UserAgentLossTest, AnErrorOfAnExtractorIsNotWaitedFor) {
    const auto server = startServer(dispatch);
    RawPeer agent(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createErrorReply("org.example.Error", "no"));
    });
    setExtractor(agent);
    std::chrono::nanoseconds waited = kGivenUp;
    for (int i = 0; i < 5 && waited >= kGivenUp; ++i) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(server->getURL("Safari"), "");
        waited = std::chrono::steady_clock::now() - start;
    }
    EXPECT_LT(waited, kGivenUp);
}

TEST_F(UserAgentLossTest, AnAgentThatLeavesIsNotWaitedFor) {
    const auto server = startServer(dispatch);
    std::chrono::nanoseconds waited = kGivenUp;
    for (int i = 0; i < 5 && waited >= kGivenUp; ++i) {
        std::atomic<bool> asked{false};
        auto agent = std::make_unique<RawPeer>(
            bus.address(), [&](const QDBusMessage&, const QDBusConnection&) { asked = true; });
        setExtractor(*agent);
        std::atomic<bool> answered{false};
        std::thread daemon([&] {
            EXPECT_EQ(server->getURL("Safari"), "");
            answered = true;
        });
        EXPECT_TRUE(WaitFor([&] { return asked.load(); }));
        const auto start = std::chrono::steady_clock::now();
        agent.reset();
        EXPECT_TRUE(WaitFor([&] { return answered.load(); }));
        waited = std::chrono::steady_clock::now() - start;
        daemon.join();
    }
    EXPECT_LT(waited, kGivenUp);
}

TEST_F(UserAgentLossTest, WhenAnAgentLeavesTheOneRegisteredBeforeIsAsked) {
    const auto server = startServer();
    const auto first = startClient([](const auto&) { return "first"; });
    ASSERT_TRUE(WaitFor([&] { return server->getURL("Safari") == "first"; }));
    auto second = startClient([](const auto&) { return "second"; });
    ASSERT_TRUE(WaitFor([&] { return server->getURL("Safari") == "second"; }));
    second.reset();
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "first"; }));
}

TEST_F(UserAgentLossTest, AnInterruptedClientComesBackAndRegistersANewExtractor) {
    auto server = startServer();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && log.count("URLExtractor has been set") == 1; }));
    server->stop();
    ASSERT_TRUE(WaitFor([&] { return log.count("Did interrupt -- reconnecting") == 1; }));
    EXPECT_TRUE(WaitFor([&] { return !client->connected(); }));
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && log.count("URLExtractor has been set") == 2; }));
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "url of Safari"; }));
    client->sendURL("https://example.com/", "Safari", 1);
    EXPECT_TRUE(WaitFor([&] { return reports.count() == 1; }));
}

TEST_F(UserAgentLossTest, AnAddressThatCameWhileTheServiceWasAwayIsReportedToTheNextOne) {
    auto server = startServer();
    const auto client = startClient([](const auto&) { return "https://example.com/after"; });
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    client->sendURL("https://example.com/before", "Firefox", 1);
    ASSERT_TRUE(WaitFor([&] { return reports.count() == 1; }));
    server->stop();
    ASSERT_TRUE(WaitFor([&] { return !client->connected(); }));
    client->sendURL("https://example.com/between", "Firefox", 1);
    client->sendURL("https://example.com/after", "Firefox", 1);
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && reports.count() == 2; }));
    EXPECT_THAT(reports.all(),
                ElementsAre("Firefox 1 https://example.com/before", "Firefox 1 https://example.com/after"));
}

TEST_F(UserAgentLossTest, AClientFindsADaemonThatComesLater) {
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return log.count("Did invalidate -- reconnecting") >= 3; }));
    client->sendURL("https://example.com/lost", "Safari", 1);
    EXPECT_TRUE(WaitFor([&] { return log.count("Failed to get remote object -- %s") == 1; }));
    const auto server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    client->sendURL("https://example.com/found", "Safari", 1);
    EXPECT_TRUE(WaitFor([&] { return reports.count() == 1; }));
    EXPECT_THAT(reports.all(), ElementsAre("Safari 1 https://example.com/found"));
}

TEST_F(UserAgentLossTest, AClientSurvivesTheLossOfTheBus) {
    auto server = startServer();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    bus.kill();
    ASSERT_TRUE(WaitFor([&] { return log.count("Did invalidate -- reconnecting") >= 2; }));
    bus.start();
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && server->getURL("Safari") == "url of Safari"; }));
}

TEST_F(UserAgentLossTest, ADaemonThatNeverAnswersStillGetsReports) {
    const auto daemon =
        startService([&](const QDBusMessage& message, const QDBusConnection&) { received.add(message); });
    const auto client = startClient();
    client->sendURL("https://example.com/", "Safari", 1);
    ASSERT_TRUE(WaitFor([&] { return received.all("SendURL").size() == 1; }));
    EXPECT_FALSE(client->connected());
}

TEST_F(UserAgentLossTest, ADroppedAgentLeavesTheBus) {
    const auto server = startServer();
    {
        const cmn::UserAgentXPCClient agent([](const std::string&) { return std::string(); }, queues,
                                            transport);
        ASSERT_TRUE(WaitFor([&] { return log.count("URLExtractor has been set") == 1; }));
    }
    EXPECT_TRUE(WaitFor([&] { return log.count("Connection has been invalidated") == 1; }));
}

}  // namespace
