#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "UserAgentServerFixture.h"
#include "support/LogLine.h"

namespace {

using namespace std::chrono_literals;
using fake::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(UserAgentXPCServerTest, ListensUnderTheUserAgentsNameFromItsConstruction) {
    const auto server = makeServer();
    EXPECT_EQ(transport->lastListener()->machServiceName, "com.tessarin.UserAgent");
    EXPECT_TRUE(transport->lastListener()->resumed);
    EXPECT_THAT(log.lines(), ElementsAre(LogLine("TRACE", "UserAgentObjCXPCServer started")));
}

TEST_F(UserAgentXPCServerTest, StopEndsTheListening) {
    const auto server = makeServer();
    const auto listener = transport->lastListener();
    server->stop();
    EXPECT_TRUE(listener->invalidated);
    EXPECT_EQ(transport->lastListener(), listener);
}

TEST_F(UserAgentXPCServerTest, ItsEndIsTheEndOfTheListening) {
    auto server = makeServer();
    const auto listener = transport->lastListener();
    server.reset();
    EXPECT_TRUE(listener->invalidated);
}

TEST_F(UserAgentXPCServerTest, AcceptsEveryConnectionAndLogsBeforeAndAfter) {
    const auto server = makeServer();
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(connect(), nullptr);
        EXPECT_TRUE(connection->resumed());
        EXPECT_TRUE(connection->hasHandlers());
    }
    const auto lines = log.linesWith("ew connection");
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_THAT(lines[0], LogLine(" INFO", "Accepting new connection"));
    EXPECT_THAT(lines[1], LogLine(" INFO", "New connection accepted"));
}

TEST_F(UserAgentXPCServerTest, LogsTheInvalidationOfAConnection) {
    const auto server = makeServer();
    connect();
    connection->sendInvalidation();
    EXPECT_THAT(log.linesWith("nvalidate"), ElementsAre(LogLine(" WARN", "Did invalidate"),
                                                        LogLine(" WARN", "Connection has been invalidated")));
}

TEST_F(UserAgentXPCServerTest, LogsTheInterruptionOfAConnection) {
    const auto server = makeServer();
    connect();
    connection->sendInterruption();
    EXPECT_THAT(log.linesWith("nterrupt"), ElementsAre(LogLine(" WARN", "Did interrupt"),
                                                       LogLine(" WARN", "Connection has been interrupted")));
}

TEST_F(UserAgentXPCServerTest, TheHandlersOfAConnectionHoldTheServerWeakly) {
    const auto server =
        std::make_shared<cmn::UserAgentObjCXPCServer>(cmn::URLReceivedBlock(), dispatch, transport);
    const auto peer = transport->createConnection("", cmn::XPCConnectionOptions::none);
    const long before = server.use_count();
    server->shouldAcceptNewConnection(peer);
    EXPECT_EQ(server.use_count(), before + 1) << "only the exported object";
}

TEST_F(UserAgentXPCServerTest, AnswersVersionWith10) {
    const auto server = makeServer();
    std::string version;
    connect()->version([&](const std::string& answer) { version = answer; });
    EXPECT_EQ(version, "1.0");
}

TEST_F(UserAgentXPCServerTest, AnswersYesToAnExtractorAndLogsIt) {
    const auto server = makeServer();
    bool answer = false;
    connect()->setURLExtractor(extractor, [&](bool accepted) { answer = accepted; });
    EXPECT_TRUE(answer);
    EXPECT_THAT(log.linesWith("URLExtractor"),
                testing::Contains(LogLine(" INFO", "URLExtractor has been set")));
}

TEST_F(UserAgentXPCServerTest, HandsReportsToItsCallback) {
    const auto server = makeServer();
    connect()->sendURL("https://example.com/", "Google Chrome", 77);
    EXPECT_THAT(reports, ElementsAre(Report{"https://example.com/", "Google Chrome", 77}));
}

TEST_F(UserAgentXPCServerTest, HandsTheReportingPeerToItsCallback) {
    const auto server = makeServer();
    for (const std::uint32_t user : {1000U, 1001U}) {
        const auto agent = transport->lastListener()->connectPeer(cmn::XPCPeer{.userID = user});
        agent->deliver<cmn::UserAgentProtocol>([](auto& service) { service.sendURL("u", "Safari", 1); });
        EXPECT_EQ(reports.back().peer, agent->peer());
        EXPECT_EQ(reports.back().peer->userID, user);
    }
}

TEST_F(UserAgentXPCServerTest, AReportWithoutACallbackIsDropped) {
    const auto server = cmn::CreateUserAgentXPCServer(nullptr, dispatch, transport);
    connect()->sendURL("https://example.com/", "Google Chrome", 77);
    const auto plain =
        std::make_shared<cmn::UserAgentObjCXPCServer>(cmn::URLReceivedBlock(), dispatch, transport);
    plain->sendURL("u", "b", 1);
}

TEST_F(UserAgentXPCServerTest, NoReportArrivesAfterItsEnd) {
    auto server = makeServer();
    const auto service = connect();
    server.reset();
    service->sendURL("https://example.com/", "Google Chrome", 77);
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(UserAgentXPCServerTest, GetURLWithoutAnExtractorIsEmptyAtOnce) {
    const auto server = makeServer();
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_EQ(dispatch->now(), 0ns);
}

TEST_F(UserAgentXPCServerTest, GetURLReturnsWhatTheExtractorAnswers) {
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("Safari"), "url of Safari");
    EXPECT_THAT(log.linesWith("getUrl"), ElementsAre(LogLine("TRACE", "call getUrl for browser: 'Safari'")));
}

TEST_F(UserAgentXPCServerTest, GetURLAsksForTheListedBrowserThatTheTextContains) {
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("The Google Chrome Helper (Renderer)"), "url of Google Chrome");
    EXPECT_THAT(extractor->asked, ElementsAre("Google Chrome"));
    EXPECT_EQ(log.count("call getUrl for browser: 'The Google Chrome Helper (Renderer)'"), 1u);
}

TEST_F(UserAgentXPCServerTest, TheBrowserOfAQuestionForgesNoLine) {
    const auto server = makeServerWithExtractor();
    server->getURL("Safari\n");
    server->getURL("other\n");
    EXPECT_EQ(log.count("call getUrl for browser: 'Safari\\x0a'"), 1U);
    EXPECT_EQ(log.count("getUrl called for browser: 'other\\x0a' -- failed."), 1U);
}

TEST_F(UserAgentXPCServerTest, GetURLTakesTheFirstEntryOfItsListNotOfTheText) {
    const auto server = makeServerWithExtractor();
    server->getURL("Safari and Google Chrome");
    EXPECT_THAT(extractor->asked, ElementsAre("Google Chrome"));
}

TEST_F(UserAgentXPCServerTest, GetURLComparesCaseSensitively) {
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("safari"), "");
    EXPECT_EQ(server->getURL("google chrome"), "");
    EXPECT_EQ(server->getURL(""), "");
    EXPECT_THAT(extractor->asked, IsEmpty());
}

TEST_F(UserAgentXPCServerTest, GetURLForFirefoxIsEmptyWithoutAsking) {
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("Firefox"), "");
    EXPECT_THAT(extractor->asked, IsEmpty());
    EXPECT_THAT(log.linesWith("getUrl"),
                ElementsAre(LogLine("TRACE", "getUrl called for browser: 'Firefox' -- failed.")));
}

TEST_F(UserAgentXPCServerTest, GetURLWaitsThreeSecondsThenReturnsTheEmptyURL) {
    extractor->answers = false;
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_EQ(dispatch->now(), 3s);
    ASSERT_EQ(extractor->replies.size(), 1u);
    extractor->replies[0]("too late");  // nobody reads it
    EXPECT_EQ(server->getURL("Firefox"), "");
}

TEST_F(UserAgentXPCServerTest, GetURLTakesAnAnswerWithinTheThreeSeconds) {
    extractor->answers = false;
    const auto server = makeServerWithExtractor();
    dispatch->deliver(3s - 1ns, [&] { extractor->replies.at(0)("just in time"); });
    EXPECT_EQ(server->getURL("Safari"), "just in time");
}

TEST_F(UserAgentXPCServerTest, GetURLEndsAtOnceWhenNoAnswerCanCome) {
    extractor->forgets = true;
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(extractor->asked, ElementsAre("Safari"));
    EXPECT_EQ(dispatch->now(), 0ns);
}

TEST_F(UserAgentXPCServerTest, GetURLEndsWhenThePeerLeavesMeanwhile) {
    extractor->answers = false;
    const auto server = makeServerWithExtractor();
    dispatch->after(1s, cmn::QueuePriority::normal, [&] { extractor->replies.clear(); });
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_EQ(dispatch->now(), 1s);
}

TEST_F(UserAgentXPCServerTest, GetURLAsksTheExtractorThatWasSetLast) {
    const auto server = makeServer();
    const auto second = std::make_shared<ScriptedExtractor>();
    connect()->setURLExtractor(extractor, [](bool) {});
    connect()->setURLExtractor(second, [](bool) {});
    server->getURL("Safari");
    EXPECT_THAT(extractor->asked, IsEmpty());
    EXPECT_THAT(second->asked, ElementsAre("Safari"));
    EXPECT_EQ(extractor.use_count(), 1) << "the earlier one is let go";
}

TEST_F(UserAgentXPCServerTest, GetURLAfterAnExtractorOfNothingIsEmptyAtOnce) {
    const auto server = makeServerWithExtractor();
    connect()->setURLExtractor(nullptr, [](bool) {});
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(extractor->asked, IsEmpty());
}

TEST_F(UserAgentXPCServerTest, AnExtractorOfAPeerThatIsNotKnownOutlivesConnections) {
    const auto server = makeServerWithExtractor();
    connection->sendInvalidation();
    EXPECT_EQ(server->getURL("Safari"), "url of Safari") << "nobody can tell whose it was";
}

TEST_F(UserAgentXPCServerTest, GetURLLogsAStandardExceptionAndIsEmpty) {
    extractor->failure = true;
    const auto server = makeServerWithExtractor();
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(log.linesWith("Exception"),
                ElementsAre(LogLine("DEBUG", "getUrl for browser:Exception 'extractor failed' -- failed.")));
}

}  // namespace
