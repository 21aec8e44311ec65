#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "UserAgentClientFixture.h"
#include "support/LogLine.h"
#include "xpccommon/UserAgentXPCClient.h"

namespace {

using namespace std::chrono_literals;
using fake::LogLine;
using testing::ElementsAre;
using testing::SizeIs;
using testing::StartsWith;
using Queue = fake::Dispatch::Queue;

TEST_F(UserAgentXPCClientTest, IsAClientOfThePrivilegedUserAgentService) {
    const auto client = makeClient();
    EXPECT_EQ(client->machServiceName(), "com.tessarin.UserAgent");
    EXPECT_TRUE(client->isServicePrivileged());
    EXPECT_FALSE(client->connected());
    EXPECT_EQ(daemon.transport()->connectionsCreated(), 0);
}

TEST_F(UserAgentXPCClientTest, TheWrapperConnectsOnConstruction) {
    const auto client = cmn::CreateUserAgentXPCClient(nullptr, dispatch, daemon.transport());
    EXPECT_EQ(daemon.transport()->connectionsCreated(), 1);
    EXPECT_EQ(static_cast<unsigned>(daemon.transport()->lastConnection()->options), 4096u);
    EXPECT_NE(daemon.transport()->lastConnection()->remoteObjectInterface(), nullptr);
}

TEST_F(UserAgentXPCClientTest, TheWrapperPassesReportsOn) {
    const auto client = cmn::CreateUserAgentXPCClient(nullptr, dispatch, daemon.transport());
    client->sendURL("https://example.com/", "Safari", 42);
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"https://example.com/", "Safari", 42}));
}

TEST_F(UserAgentXPCClientTest, KnowsTheLastReportThatItCouldHandOver) {
    const auto before = std::chrono::steady_clock::now();
    const auto client = cmn::CreateUserAgentXPCClient(nullptr, dispatch, daemon.transport());
    EXPECT_FALSE(client->connected());
    EXPECT_FALSE(client->lastReport());
    dispatch->runUntilIdle();
    EXPECT_TRUE(client->connected());
    client->sendURL("https://example.com/1", "Safari", 42);
    client->sendURL("https://example.com/2", "Firefox", 43);
    const auto report = client->lastReport();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->url, "https://example.com/2");
    EXPECT_EQ(report->browser, "Firefox");
    EXPECT_GE(report->when, before);
    EXPECT_LE(report->when, std::chrono::steady_clock::now());
}

TEST_F(UserAgentXPCClientTest, AReportThatNobodyTookIsNotTheLastOne) {
    const auto client = makeClient();  // does not connect
    client->sendURL("https://example.com/", "Safari", 42);
    EXPECT_FALSE(client->lastReport());
}

TEST_F(UserAgentXPCClientTest, IsConnectedOnceTheVersionWasAnswered) {
    const auto client = makeClient();
    client->connect();
    EXPECT_FALSE(client->connected());
    dispatch->runUntilIdle();
    EXPECT_TRUE(client->connected());
}

TEST_F(UserAgentXPCClientTest, AsksTheVersionOnTheQueueOfHighPriority) {
    connectedClient();
    EXPECT_THAT(daemon.versionQueues, ElementsAre(Queue::high));
}

TEST_F(UserAgentXPCClientTest, RegistersTheExtractorOnTheMainQueue) {
    connectedClient();
    EXPECT_THAT(daemon.extractorQueues, ElementsAre(Queue::main));
}

TEST_F(UserAgentXPCClientTest, TheRegisteredExtractorAsksTheDelegate) {
    const auto client = makeClient([](const std::string& browser) { return "url of " + browser; });
    client->connect();
    dispatch->runUntilIdle();
    std::string answer;
    daemon.extractors.at(0)->getURL("Safari", [&](const std::string& url) { answer = url; });
    EXPECT_EQ(answer, "url of Safari");
}

TEST_F(UserAgentXPCClientTest, DoesNotBlockTheMainQueueWhenTheRegistrationIsNotAnswered) {
    daemon.answersExtractor = false;
    connectedClient();
    EXPECT_THAT(daemon.extractors, SizeIs(1));
    EXPECT_EQ(dispatch->waiting(), 0u);
    EXPECT_EQ(dispatch->now(), 0ns);
}

TEST_F(UserAgentXPCClientTest, WaitsForTheVersionAtMostFiveSeconds) {
    daemon.answersVersion = false;
    const auto client = connectedClient();
    EXPECT_EQ(dispatch->waiting(), 1u);
    dispatch->advance(5s - 1ns);
    EXPECT_EQ(dispatch->waiting(), 1u);
    dispatch->advance(1ns);
    EXPECT_EQ(dispatch->waiting(), 0u);
    EXPECT_FALSE(client->connected());
}

TEST_F(UserAgentXPCClientTest, AVersionThatIsAnsweredInTimeEndsTheWait) {
    daemon.answersVersion = false;
    const auto client = connectedClient();
    dispatch->advance(4s);
    daemon.versionReplies.at(0)("1.0");
    dispatch->runUntilIdle();
    EXPECT_EQ(dispatch->waiting(), 0u);
    EXPECT_TRUE(client->connected());
    dispatch->advance(1h);
    EXPECT_THAT(daemon.versionQueues, SizeIs(1));
}

TEST_F(UserAgentXPCClientTest, AVersionThatIsAnsweredTooLateStillConnects) {
    daemon.answersVersion = false;
    const auto client = connectedClient();
    dispatch->advance(10s);
    daemon.versionReplies.at(0)("1.0");
    EXPECT_TRUE(client->connected());
}

TEST_F(UserAgentXPCClientTest, TheRetryOfTheValidationFindsItsBlockReleasedAndDoesNothing) {
    daemon.answersVersion = false;
    const auto client = connectedClient();
    dispatch->advance(5s);
    EXPECT_EQ(dispatch->pending(), 1u) << "the retry is due after another second";
    dispatch->advance(1s - 1ns);
    EXPECT_EQ(dispatch->pending(), 1u);
    dispatch->advance(1ns);
    EXPECT_EQ(dispatch->pending(), 0u);
    EXPECT_THAT(daemon.versionQueues, SizeIs(1));
}

TEST_F(UserAgentXPCClientTest, AReplacedConnectionIsGoneThoughItsValidationStillWaits) {
    const int before = fake::XPCConnection::alive();
    daemon.answersVersion = false;
    const auto client = connectedClient();
    daemon.transport()->lastConnection()->sendInterruption();
    dispatch->advance(3s);
    EXPECT_EQ(daemon.transport()->connectionsCreated(), 2);
    EXPECT_EQ(dispatch->waiting(), 2U) << "for five seconds each";
    EXPECT_EQ(fake::XPCConnection::alive(), before + 1);
}

TEST_F(UserAgentXPCClientTest, AConnectionThatIsReplacedBeforeItsValidationIsNotAsked) {
    const auto client = makeClient();
    client->connect();
    client->connect();
    dispatch->runUntilIdle();
    EXPECT_THAT(daemon.versionQueues, SizeIs(1));
    EXPECT_TRUE(client->connected());
}

TEST_F(UserAgentXPCClientTest, NoRetryIsScheduledForAConnectedClient) {
    connectedClient();
    EXPECT_EQ(dispatch->pending(), 0u);
}

TEST_F(UserAgentXPCClientTest, TheValidationDoesNotKeepTheClientAlive) {
    daemon.answersVersion = false;
    auto client = connectedClient();
    const std::weak_ptr<cmn::UserAgentObjCXPCClient> watched = client;
    client.reset();
    EXPECT_TRUE(watched.expired());
    dispatch->advance(10s);
    EXPECT_EQ(dispatch->pending(), 0u);
}

TEST_F(UserAgentXPCClientTest, AFailedValidationWarnsWithTheSuggestionBehindTwoBlanks) {
    daemon.present = false;
    daemon.error.recoverySuggestion = "start the daemon";
    connectedClient();
    EXPECT_THAT(log.linesWith("Remote object proxy error"),
                ElementsAre(LogLine(" WARN", "Remote object proxy error --  start the daemon")));
}

TEST_F(UserAgentXPCClientTest, AFailedRegistrationIsLoggedAsErrorWithTheSuggestion) {
    daemon.present = false;
    daemon.error.recoverySuggestion = "start the daemon";
    connectedClient();
    EXPECT_THAT(log.linesWith("Failed to get remote object"),
                ElementsAre(LogLine("ERROR", "Failed to get remote object -- start the daemon")));
}

TEST_F(UserAgentXPCClientTest, TheSuggestionOfAnErrorForgesNoLine) {
    daemon.present = false;
    daemon.error.recoverySuggestion = "start\nthe daemon";
    connectedClient();
    EXPECT_EQ(log.count("Remote object proxy error --  start\\x0athe daemon"), 1U);
    EXPECT_EQ(log.count("Failed to get remote object -- start\\x0athe daemon"), 1U);
}

TEST_F(UserAgentXPCClientTest, AFailedReportIsLoggedWithItsPlaceholderWrittenLiterally) {
    const auto client = connectedClient();
    daemon.present = false;
    client->sendURL("https://example.com/", "Safari", 1);
    dispatch->runUntilIdle();
    EXPECT_THAT(log.linesWith("Failed to get remote object"),
                ElementsAre(LogLine("ERROR", "Failed to get remote object -- %s")));
}

TEST_F(UserAgentXPCClientTest, AReportWithoutAnyConnectionIsLoggedAndReturnsAtOnce) {
    const auto client = makeClient();
    client->sendURL("https://example.com/", "Safari", 1);
    EXPECT_EQ(log.count("Failed to get remote object -- %s"), 1u);
    EXPECT_EQ(dispatch->now(), 0ns);
}

TEST_F(UserAgentXPCClientTest, AReportReturnsAtOnceWithoutTakingTime) {
    daemon.answersVersion = false;
    daemon.answersExtractor = false;
    const auto client = connectedClient();
    for (int i = 0; i < 100; ++i) {
        client->sendURL("u", "Safari", i);
    }
    EXPECT_THAT(daemon.reports.all(), SizeIs(100));
    EXPECT_EQ(dispatch->now(), 0ns);
}

TEST_F(UserAgentXPCClientTest, AnInterruptionIsLoggedAndTheClientComesBackWithANewExtractor) {
    const auto client = connectedClient();
    daemon.transport()->lastConnection()->sendInterruption();
    EXPECT_FALSE(client->connected());
    const auto lines = log.linesWith("Did interrupt -- reconnecting");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], StartsWith("[ WARN]"));
    dispatch->advance(3s - 1ns);
    EXPECT_EQ(daemon.transport()->connectionsCreated(), 1);
    dispatch->advance(1ns);
    EXPECT_EQ(daemon.transport()->connectionsCreated(), 2);
    EXPECT_TRUE(client->connected());
    ASSERT_THAT(daemon.extractors, SizeIs(2));
    EXPECT_NE(daemon.extractors[0], daemon.extractors[1]);
}

TEST_F(UserAgentXPCClientTest, AnInvalidationIsLoggedAndTheClientComesBack) {
    const auto client = connectedClient();
    daemon.transport()->lastConnection()->sendInvalidation();
    EXPECT_FALSE(client->connected());
    const auto lines = log.linesWith("Did invalidate -- reconnecting");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], StartsWith("[ WARN]"));
    dispatch->advance(3s);
    EXPECT_TRUE(client->connected());
    EXPECT_THAT(daemon.extractors, SizeIs(2));
}

// A client whose browsers show what is in `addresses`, and a service that goes and comes.
class UserAgentXPCClientRestartTest : public UserAgentXPCClientTest {
 protected:
    std::shared_ptr<cmn::UserAgentObjCXPCClient> makeWatching(
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        auto made = makeClient([this](const std::string& browser) { return addresses[browser]; }, owners);
        made->connect();
        dispatch->runUntilIdle();
        return made;
    }
    // As the watcher does.
    void show(cmn::UserAgentObjCXPCClient& client, const std::string& browser, const std::string& url) {
        addresses[browser] = url;
        client.sendURL(url, browser, 7);
    }
    void loseService() {
        daemon.present = false;
        daemon.transport()->lastConnection()->sendInterruption();
    }
    void bringServiceBack() {
        daemon.present = true;
        dispatch->advance(3s);
    }

    std::map<std::string, std::string> addresses;
};

TEST_F(UserAgentXPCClientRestartTest, AServiceThatComesBackIsToldTheAddressOfEachBrowserOnce) {
    const auto client = makeWatching();
    show(*client, "Firefox", "before");
    show(*client, "Safari", "page");
    loseService();
    show(*client, "Firefox", "between");
    show(*client, "Firefox", "after");
    daemon.reports.clear();
    bringServiceBack();
    EXPECT_THAT(daemon.reports.all(),
                ElementsAre(SentURL{"after", "Firefox", 7}, SentURL{"page", "Safari", 7}));
    EXPECT_EQ(client->lastReport()->url, "page");
    dispatch->advance(60s);
    EXPECT_THAT(daemon.reports.all(), SizeIs(2)) << "once";
}

TEST_F(UserAgentXPCClientRestartTest, AServiceThatComesAfterTheAgentIsToldWhatIsShown) {
    const auto client = makeClient([](const auto&) { return std::string("page"); });
    client->sendURL("page", "Firefox", 7);
    client->connect();
    dispatch->runUntilIdle();
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"page", "Firefox", 7}));
}

TEST_F(UserAgentXPCClientRestartTest, WhatIsShownNoMoreIsNotTold) {
    const auto client = makeWatching();
    show(*client, "Firefox", "page");
    loseService();
    addresses["Firefox"] = "";  // closed, or its field is empty
    daemon.reports.clear();
    bringServiceBack();
    EXPECT_TRUE(client->connected());
    EXPECT_THAT(daemon.reports.all(), SizeIs(0));
}

TEST_F(UserAgentXPCClientRestartTest, AnAddressThatComesWhileTheServiceIsToldIsNotFollowedByAnOlderOne) {
    std::shared_ptr<cmn::UserAgentObjCXPCClient> client;
    bool changes = false;
    client = makeClient([&](const std::string&) {
        if (changes) {
            client->sendURL("newer", "Firefox", 7);  // on another thread, right after the answer
        }
        return std::string("page");
    });
    client->connect();
    dispatch->runUntilIdle();
    client->sendURL("page", "Firefox", 7);
    loseService();
    daemon.reports.clear();
    changes = true;
    bringServiceBack();
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"newer", "Firefox", 7}));
}

TEST_F(UserAgentXPCClientRestartTest, WhatTheNewServiceWasToldAlreadyIsNotToldAgain) {
    const auto client = makeWatching();
    show(*client, "Firefox", "page");
    loseService();
    daemon.present = true;
    daemon.answersVersion = false;
    dispatch->advance(3s);
    daemon.reports.clear();
    show(*client, "Firefox", "next");
    daemon.versionReplies.back()("1.0");
    dispatch->runUntilIdle();
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"next", "Firefox", 7}));
}

TEST_F(UserAgentXPCClientRestartTest, ADelegateThatFailsIsLoggedAndTheOthersAreTold) {
    const auto client = makeClient([](const std::string& browser) {
        if (browser == "Firefox") {
            throw std::runtime_error("no memory");
        }
        return std::string("page");
    });
    client->sendURL("page", "Firefox", 7);
    client->sendURL("page", "Safari", 8);
    client->connect();
    dispatch->runUntilIdle();
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"page", "Safari", 8}));
    EXPECT_EQ(log.count("The address of Firefox is not known -- no memory"), 1U);
}

TEST_F(UserAgentXPCClientTest, AStoppedClientComesBack) {
    const auto client = connectedClient();
    client->stop();
    EXPECT_EQ(client->connection(), nullptr);
    dispatch->advance(3s);
    EXPECT_TRUE(client->connected());
}

TEST_F(UserAgentXPCClientTest, ReportsAreSentOverTheNewestConnection) {
    const auto client = connectedClient();
    daemon.transport()->lastConnection()->sendInterruption();
    dispatch->advance(3s);
    EXPECT_EQ(client->connection(), daemon.transport()->lastConnection());
    client->sendURL("u", "Safari", 1);
    EXPECT_THAT(daemon.reports.all(), SizeIs(1));
}

TEST_F(UserAgentXPCClientTest, AnAbsentDaemonIsTriedForEverWithoutGrowth) {
    SetLogLevel(LogLevel::Silent);
    daemon.present = false;
    // An absent service invalidates every connection soon after it is resumed.
    daemon.transport()->onConnection = [&](const std::shared_ptr<fake::XPCConnection>& connection) {
        dispatch->deliver(0ns, [weak = std::weak_ptr(connection)] { weak.lock()->sendInvalidation(); });
    };
    const int before = fake::XPCConnection::alive();
    const auto client = connectedClient();
    std::size_t mostPending = 0;
    for (int i = 0; i < 10'000; ++i) {
        dispatch->advance(3s);
        // The connections of validations that still wait for their five seconds, and the newest.
        ASSERT_LE(fake::XPCConnection::alive(), before + 3) << "after " << i;
        mostPending = std::max(mostPending, dispatch->pending());
    }
    EXPECT_GE(daemon.transport()->connectionsCreated(), 10'000);
    EXPECT_LE(mostPending, 5u);
}

TEST_F(UserAgentXPCClientTest, ADroppedClientIsGoneAfterItsLastReconnectAlsoWithoutADaemon) {
    daemon.present = false;
    daemon.transport()->onConnection = [&](const std::shared_ptr<fake::XPCConnection>& connection) {
        dispatch->deliver(0ns, [weak = std::weak_ptr(connection)] {
            if (const auto alive = weak.lock()) {
                alive->sendInvalidation();
            }
        });
    };
    auto client = connectedClient();
    dispatch->advance(10s);
    const std::weak_ptr<cmn::UserAgentObjCXPCClient> watched = client;
    client.reset();
    dispatch->advance(20s);
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(fake::XPCConnection::alive(), 0);
}

}  // namespace
