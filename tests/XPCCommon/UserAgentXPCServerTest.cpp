#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "support/LogCapture.h"
#include "support/LogLine.h"
#include "xpccommon/UserAgentXPCServer.h"

namespace {

using namespace std::chrono_literals;
using fake::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

// The agent's extractor as the daemon reaches it.
class ScriptedExtractor : public cmn::URLExtractor {
 public:
    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override {
        asked.push_back(browser);
        if (failure) {
            throw std::runtime_error("extractor failed");
        }
        if (forgets) {
            return;
        }
        if (answers) {
            reply("url of " + browser);
        } else {
            replies.push_back(std::move(reply));
        }
    }

    bool answers = true;
    bool failure = false;
    bool forgets = false;  // as a transport that gets an error
    std::vector<std::string> asked;
    std::vector<std::function<void(const std::string&)>> replies;
};

struct Report {
    std::string url, browser;
    std::int32_t pid;
    std::optional<cmn::XPCPeer> peer = std::nullopt;
    bool operator==(const Report&) const = default;
};

class UserAgentXPCServerTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::unique_ptr<cmn::UserAgentXPCServer> makeServer() {
        return cmn::CreateUserAgentXPCServer(
            [this](const std::string& url, const std::string& browser, std::int32_t pid, const auto& peer) {
                reports.push_back({url, browser, pid, peer});
            },
            dispatch, transport);
    }
    std::unique_ptr<cmn::UserAgentXPCServer> makeServerWithExtractor() {
        auto server = makeServer();
        connect()->setURLExtractor(extractor, [](bool) {});
        return server;
    }
    // A new peer's view of the service.
    std::shared_ptr<cmn::UserAgentProtocol> connect() {
        connection = transport->lastListener()->connectPeer();
        return connection ? std::dynamic_pointer_cast<cmn::UserAgentProtocol>(connection->exportedObject())
                          : nullptr;
    }

    fake::LogCapture log;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    std::shared_ptr<fake::XPCTransport> transport = std::make_shared<fake::XPCTransport>();
    std::shared_ptr<fake::XPCConnection> connection;
    std::shared_ptr<ScriptedExtractor> extractor = std::make_shared<ScriptedExtractor>();
    std::vector<Report> reports;
};

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

constexpr std::uint32_t kAlice = 1000;
constexpr std::uint32_t kBob = 1001;

// Agents of several users.
class UserAgentsOfUsersTest : public UserAgentXPCServerTest {
 protected:
    // An agent's connection, with its extractor registered.
    std::shared_ptr<fake::XPCConnection> agentOf(std::uint32_t user,
                                                 const std::shared_ptr<ScriptedExtractor>& itsExtractor) {
        auto agent = transport->lastListener()->connectPeer(cmn::XPCPeer{.userID = user, .processID = 7});
        setExtractor(*agent, itsExtractor);
        return agent;
    }
    static void setExtractor(fake::XPCConnection& agent, std::shared_ptr<cmn::URLExtractor> itsExtractor) {
        agent.deliver<cmn::UserAgentProtocol>([&](auto& service) {
            service.setURLExtractor(std::move(itsExtractor), [](bool accepted) { EXPECT_TRUE(accepted); });
        });
    }
    // Whose extractor is asked.
    std::string asked() {
        alices->asked.clear();
        bobs->asked.clear();
        server->getURL("Safari");
        return std::string(alices->asked.size(), 'a') + std::string(bobs->asked.size(), 'b');
    }

    std::shared_ptr<ScriptedExtractor> alices = extractor;
    std::shared_ptr<ScriptedExtractor> bobs = std::make_shared<ScriptedExtractor>();
    std::optional<cmn::UserId> activeUser;
    std::shared_ptr<cmn::UserAgentObjCXPCServer> server = [this] {
        auto made =
            std::make_shared<cmn::UserAgentObjCXPCServer>(cmn::URLReceivedBlock(), dispatch, transport);
        made->setActiveUser([this] { return activeUser; });
        made->start();
        return made;
    }();
};

TEST_F(UserAgentsOfUsersTest, TheActiveSessionsUserIsAskedFirst) {
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    for (int i = 0; i < 2; ++i) {
        activeUser = kAlice;
        EXPECT_EQ(asked(), "a");
        activeUser = kBob;
        EXPECT_EQ(asked(), "b");
    }
}

TEST_F(UserAgentsOfUsersTest, TheSystemIsAskedWhoIsActive) {
    server->stop();
    server = std::make_shared<cmn::UserAgentObjCXPCServer>(cmn::URLReceivedBlock(), dispatch, transport);
    server->start();
    const auto console = cmn::GetUIDByName(cmn::GetCurrentUserName());
    const auto active = agentOf(console.value_or(kAlice), alices);
    const auto other = agentOf(console.value_or(kAlice) + 1, bobs);
    EXPECT_EQ(asked(), console ? "a" : "b");
}

TEST_F(UserAgentsOfUsersTest, WithoutAnAgentOfTheActiveUserTheOneRegisteredLastIsAsked) {
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    EXPECT_EQ(asked(), "b") << "nobody is active";
    activeUser = 4711;
    EXPECT_EQ(asked(), "b");
    setExtractor(*alice, alices);
    EXPECT_EQ(asked(), "a");
}

TEST_F(UserAgentsOfUsersTest, NobodyRegistersForAnotherUser) {
    activeUser = kAlice;
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    setExtractor(*bob, nullptr);
    EXPECT_EQ(asked(), "a");
    connect()->setURLExtractor(bobs, [](bool) {});
    EXPECT_EQ(asked(), "a") << "a peer that is not known is none of hers";
    connect()->setURLExtractor(nullptr, [](bool) {});
    EXPECT_EQ(asked(), "a");
}

TEST_F(UserAgentsOfUsersTest, WhenOneLeavesTheLastLivingOneIsAsked) {
    activeUser = kBob;
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    bob->sendInvalidation();
    EXPECT_EQ(asked(), "a");
    EXPECT_EQ(bobs.use_count(), 1) << "and his is let go";
    alice->sendInvalidation();
    EXPECT_EQ(asked(), "");
    EXPECT_EQ(server->urlExtractor(), nullptr);
}

TEST_F(UserAgentsOfUsersTest, AConnectionThatWasReplacedTakesNothingAlongWhenItEnds) {
    const auto first = agentOf(kAlice, alices);
    const auto second = agentOf(kAlice, bobs);
    first->sendInvalidation();
    EXPECT_EQ(asked(), "b");
    EXPECT_EQ(alices.use_count(), 2) << "the first one's is let go";
}

TEST_F(UserAgentsOfUsersTest, OfTwoSessionsOfAUserTheLastLivingOneIsAsked) {
    activeUser = kAlice;
    const auto first = agentOf(kAlice, alices);
    const auto second = agentOf(kAlice, bobs);
    EXPECT_EQ(asked(), "b");
    second->sendInvalidation();
    EXPECT_EQ(asked(), "a");
}

TEST_F(UserAgentsOfUsersTest, AnInterruptedConnectionKeepsItsExtractor) {
    const auto alice = agentOf(kAlice, alices);
    alice->sendInterruption();
    EXPECT_EQ(asked(), "a");
}

}  // namespace
