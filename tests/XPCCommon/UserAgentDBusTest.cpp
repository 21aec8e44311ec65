#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

#include "support/BusWorld.h"
#include "support/RawPeer.h"
#include "support/ReceivedCalls.h"
#include "xpccommon/UserAgentObjCXPCClient.h"
#include "xpccommon/UserAgentXPCClient.h"
#include "xpccommon/UserAgentXPCServer.h"

namespace {

// Of a directory service that does not answer while the mutex is held.
struct {
    std::mutex mutex;
    std::atomic<int> asked{0};
} slowUsers;

}  // namespace

// Takes the place of the system's for the users of system buses.
extern "C" int getpwnam_r(const char* name, passwd* entry, char* buffer, std::size_t size, passwd** found) {
    if (std::string_view(name) == "messagebus" || std::string_view(name) == "dbus") {
        ++slowUsers.asked;
        const std::lock_guard lock(slowUsers.mutex);
        *found = nullptr;
        return 0;
    }
    static const auto real = reinterpret_cast<decltype(&getpwnam_r)>(::dlsym(RTLD_NEXT, "getpwnam_r"));
    return real(name, entry, buffer, size, found);
}

// The user agent service over a real bus: its contract with other programs, and both ends together.
namespace {

using namespace std::chrono_literals;
using fake::RawPeer;
using fake::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr const char* kUserAgentService = "com.tessarin.UserAgent";
constexpr const char* kUserAgentPath = "/com/tessarin/UserAgent";

class UserAgentDBusTest : public fake::BusWorld {
 protected:
    std::unique_ptr<cmn::UserAgentXPCServer> startServer() { return startServer(queues); }
    std::unique_ptr<cmn::UserAgentXPCServer> startServer(const std::shared_ptr<cmn::Dispatch>& ofServer) {
        return awaitListening([&] {
            return cmn::CreateUserAgentXPCServer(
                [reports = reports, reporters = reporters](const std::string& url, const std::string& browser,
                                                           std::int32_t pid, const auto& peer) {
                    reporters.add(peer);
                    reports.add(browser + " " + std::to_string(pid) + " " + url);
                },
                ofServer, transport);
        });
    }
    std::shared_ptr<cmn::UserAgentObjCXPCClient> startClient(
        cmn::URLExtractorDelegate delegate = [](const auto& name) { return "url of " + name; },
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        auto client =
            std::make_shared<cmn::UserAgentObjCXPCClient>(std::move(delegate), queues, transport, owners);
        client->connect();
        return client;
    }
    // A daemon that answers as the contract says.
    RawPeer::Handler goodDaemon() {
        return [this](const QDBusMessage& message, const QDBusConnection& connection) {
            received.add(message);
            if (message.member() == QLatin1String("Version")) {
                connection.send(message.createReply(QStringLiteral("1.0")));
            } else if (message.member() == QLatin1String("SetURLExtractor")) {
                connection.send(message.createReply(true));
            }
        };
    }

    const std::shared_ptr<fake::HurriedDispatch> queues = hurried(kHurry);
    fake::ReceivedCalls received;
    const fake::Recorder<std::string> reports;
    const fake::Recorder<std::optional<cmn::XPCPeer>> reporters;
};

TEST_F(UserAgentDBusTest, TheClientSpeaksTheContract) {
    RawPeer daemon(bus.address(), goodDaemon());
    ASSERT_TRUE(daemon.own(kUserAgentService));
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && received.all("SetURLExtractor").size() == 1; }));
    client->sendURL("https://example.com/\xc3\xa4?q=1", "Google Chrome", -7);
    ASSERT_TRUE(WaitFor([&] { return received.all("SendURL").size() == 1; }));

    const auto version = received.all("Version").at(0);
    EXPECT_EQ(version.path, kUserAgentPath);
    EXPECT_EQ(version.interface, kUserAgentService);
    EXPECT_EQ(version.signature, "");
    EXPECT_TRUE(version.wantsAnswer);

    const auto extractor = received.all("SetURLExtractor").at(0);
    EXPECT_EQ(extractor.signature, "o");
    EXPECT_TRUE(extractor.wantsAnswer);
    EXPECT_NE(extractor.arguments[0].value<QDBusObjectPath>().path(), "/");

    const auto report = received.all("SendURL").at(0);
    EXPECT_EQ(report.path, kUserAgentPath);
    EXPECT_EQ(report.interface, kUserAgentService);
    EXPECT_EQ(report.signature, "ssi");
    EXPECT_FALSE(report.wantsAnswer);
    EXPECT_EQ(report.arguments, (QVariantList{QStringLiteral("https://example.com/ä?q=1"),
                                              QStringLiteral("Google Chrome"), -7}));
}

TEST_F(UserAgentDBusTest, TheExtractorSpeaksTheContract) {
    RawPeer daemon(bus.address(), goodDaemon());
    ASSERT_TRUE(daemon.own(kUserAgentService));
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return received.all("SetURLExtractor").size() == 1; }));
    const auto extractor = received.all("SetURLExtractor").at(0);
    const std::string path = extractor.arguments[0].value<QDBusObjectPath>().path().toStdString();
    const auto ask = [&](const char* interface, const char* member, const QVariantList& arguments) {
        return daemon.call(RawPeer::message(extractor.sender, path, interface, member, arguments));
    };
    const QDBusMessage answer = ask("com.tessarin.URLExtractor", "GetURL", {QStringLiteral("Safari")});
    EXPECT_EQ(answer.signature(), "s");
    EXPECT_EQ(answer.arguments(), QVariantList{QStringLiteral("url of Safari")});
    EXPECT_EQ(ask("com.tessarin.URLExtractor", "GetURL", {5}).errorName(),
              "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(ask("com.tessarin.URLExtractor", "Other", {}).errorName(),
              "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_THAT(
        ask("org.freedesktop.DBus.Introspectable", "Introspect", {}).arguments()[0].toString().toStdString(),
        HasSubstr("com.tessarin.URLExtractor"));
}

TEST_F(UserAgentDBusTest, TheServerSpeaksTheContract) {
    const auto server = startServer();
    std::atomic<int> asked{0};
    RawPeer agent(bus.address(), [&](const QDBusMessage& message, const QDBusConnection& connection) {
        ++asked;
        received.add(message);
        connection.send(message.createReply(QStringLiteral("http://here/")));
    });
    const QDBusMessage version =
        agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "Version"));
    EXPECT_EQ(version.signature(), "s");
    EXPECT_EQ(version.arguments(), QVariantList{QStringLiteral("1.0")});
    const QDBusMessage set =
        agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                                    {QVariant::fromValue(QDBusObjectPath("/my/extractor"))}));
    EXPECT_EQ(set.signature(), "b");
    EXPECT_EQ(set.arguments(), QVariantList{true});
    agent.send(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SendURL",
                                {QStringLiteral("http://a/"), QStringLiteral("Firefox"), 3}));
    EXPECT_TRUE(WaitFor([&] { return reports.all() == std::vector<std::string>{"Firefox 3 http://a/"}; }));

    EXPECT_EQ(server->getURL("Safari"), "http://here/");
    const auto question = received.all("GetURL").at(0);
    EXPECT_EQ(question.path, "/my/extractor");
    EXPECT_EQ(question.interface, "com.tessarin.URLExtractor");
    EXPECT_EQ(question.signature, "s");
    EXPECT_EQ(question.arguments, QVariantList{QStringLiteral("Safari")});
}

TEST_F(UserAgentDBusTest, AReportThatAsksForAnAnswerAllTheSameGetsAnEmptyOne) {
    const auto server = startServer();
    RawPeer agent(bus.address());
    const QDBusMessage answer =
        agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SendURL",
                                    {QStringLiteral("u"), QStringLiteral("b"), 1}));
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage);
    EXPECT_THAT(answer.arguments(), testing::IsEmpty());
}

TEST_F(UserAgentDBusTest, AnExtractorAtTheRootPathStandsForNone) {
    const auto server = startServer();
    RawPeer agent(bus.address(),
                  [&](const QDBusMessage& message, const QDBusConnection&) { received.add(message); });
    const auto set = [&](const char* path) {
        return agent.call(
            RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                             {QVariant::fromValue(QDBusObjectPath(QString::fromLatin1(path)))}));
    };
    EXPECT_EQ(set("/my/extractor").arguments(), QVariantList{true});
    EXPECT_EQ(set("/").arguments(), QVariantList{true});
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(received.all("GetURL"), SizeIs(0));
}

TEST_F(UserAgentDBusTest, BothEndsExchangeReportsAndQuestions) {
    const auto server = startServer();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && log.count("URLExtractor has been set") == 1; }));
    for (int i = 0; i < 100; ++i) {
        client->sendURL("https://example.com/" + std::to_string(i), "Safari", i);
    }
    ASSERT_TRUE(WaitFor([&] { return reports.count() == 100; }));
    EXPECT_EQ(reports.all()[99], "Safari 99 https://example.com/99");
    EXPECT_EQ(reporters.last().value().userID, geteuid());
    EXPECT_EQ(reporters.last()->processID, getpid());
    EXPECT_EQ(server->getURL("Google Chrome (Beta)"), "url of Google Chrome");
    EXPECT_EQ(server->getURL("Firefox"), "");
}

TEST_F(UserAgentDBusTest, TheDelegateIsAskedOffTheMainThread) {
    const auto server = startServer();
    std::atomic<bool> onMain{true};
    const auto client = startClient([&, main = std::this_thread::get_id()](const std::string&) {
        onMain = std::this_thread::get_id() == main;
        return std::string("u");
    });
    ASSERT_TRUE(WaitFor([&] { return log.count("URLExtractor has been set") == 1; }));
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "u"; }));
    EXPECT_FALSE(onMain);
}

TEST_F(UserAgentDBusTest, AnExtractorThatDoesNotAnswerInTimeGivesTheEmptyURL) {
    const auto server = startServer();
    std::atomic<bool> release{false};
    const auto client = startClient([&](const std::string&) {
        EXPECT_TRUE(WaitFor([&] { return release.load(); }));
        return std::string("too late");
    });
    ASSERT_TRUE(WaitFor([&] { return log.count("URLExtractor has been set") == 1; }));
    client->sendURL("https://example.com/", "Safari", 1);  // arrives after the extractor is in place
    ASSERT_TRUE(WaitFor([&] { return reports.count() == 1; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 3s * kHurry);
    release = true;
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "too late"; })) << "the connection lives on";
}

TEST_F(UserAgentDBusTest, AnExtractorThatAnswersWronglyGivesTheEmptyURL) {
    const auto server = startServer();
    QVariantList answer{5};
    RawPeer agent(bus.address(), [&](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createReply(answer));
    });
    agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                                {QVariant::fromValue(QDBusObjectPath("/my/extractor"))}));
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_EQ(log.count("GetURL -- failed"), 1U);
}

TEST_F(UserAgentDBusTest, TheErrorOfAnExtractorForgesNoLine) {
    const auto server = startServer();
    RawPeer agent(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createErrorReply("org.example.Error", "no\n[ERROR] forged"));
    });
    agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                                {QVariant::fromValue(QDBusObjectPath("/my/extractor"))}));
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(log.linesWith("GetURL -- failed"), ElementsAre(HasSubstr("no\\x0a[ERROR] forged")));
}

TEST_F(UserAgentDBusTest, AnExtractorWhoseAgentIsGoneGivesTheEmptyURL) {
    const auto server = startServer();
    {
        RawPeer agent(bus.address());
        agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                                    {QVariant::fromValue(QDBusObjectPath("/my/extractor"))}));
    }
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_TRUE(WaitFor([&] { return log.count("Connection has been invalidated") == 1; }));
    EXPECT_EQ(server->getURL("Safari"), "");
}

// Well before a question that is not answered ends. On a machine that just stands still the first attempt may
// take longer.
constexpr std::chrono::seconds kGivenUp{2};
static_assert(kGivenUp < cmn::kGetURLDeadline);

TEST_F(UserAgentDBusTest, AnErrorOfAnExtractorIsNotWaitedFor) {
    const auto server = startServer(dispatch);
    RawPeer agent(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createErrorReply("org.example.Error", "no"));
    });
    agent.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                                {QVariant::fromValue(QDBusObjectPath("/my/extractor"))}));
    std::chrono::nanoseconds waited = kGivenUp;
    for (int i = 0; i < 5 && waited >= kGivenUp; ++i) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(server->getURL("Safari"), "");
        waited = std::chrono::steady_clock::now() - start;
    }
    EXPECT_LT(waited, kGivenUp);
}

TEST_F(UserAgentDBusTest, AnAgentThatLeavesIsNotWaitedFor) {
    const auto server = startServer(dispatch);
    std::chrono::nanoseconds waited = kGivenUp;
    for (int i = 0; i < 5 && waited >= kGivenUp; ++i) {
        std::atomic<bool> asked{false};
        auto agent = std::make_unique<RawPeer>(
            bus.address(), [&](const QDBusMessage&, const QDBusConnection&) { asked = true; });
        agent->call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "SetURLExtractor",
                                     {QVariant::fromValue(QDBusObjectPath("/my/extractor"))}));
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

TEST_F(UserAgentDBusTest, WhenAnAgentLeavesTheOneRegisteredBeforeIsAsked) {
    const auto server = startServer();
    const auto first = startClient([](const auto&) { return "first"; });
    ASSERT_TRUE(WaitFor([&] { return server->getURL("Safari") == "first"; }));
    auto second = startClient([](const auto&) { return "second"; });
    ASSERT_TRUE(WaitFor([&] { return server->getURL("Safari") == "second"; }));
    second.reset();
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "first"; }));
}

TEST_F(UserAgentDBusTest, AnAgentForRootsServicesAloneKnowsWhoseTheServiceIs) {
    const auto server = startServer();
    const auto client = startClient([](const auto&) { return "url"; }, cmn::ServiceOwners::root);
    if (geteuid() == 0) {
        EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "url"; }));
        EXPECT_TRUE(client->connected());
        client->sendURL("https://example.com/", "Safari", 1);
        EXPECT_TRUE(WaitFor([&] { return reports.count() == 1; }));
    } else {
        EXPECT_TRUE(WaitFor([&] { return log.count("so it is not used") == 1; }));
        client->sendURL("https://example.com/", "Safari", 1);
        EXPECT_EQ(server->getURL("Safari"), "");
        EXPECT_THAT(reports.all(), SizeIs(0));
    }
}

TEST_F(UserAgentDBusTest, OnASystemBusOfAnotherUserNoServiceIsTakenForRoots) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can play several users";
    }
    constexpr unsigned kBusUser = 65'534;  // nobody: the daemon wants to know its user's name
    bus.kill();
    bus.startAs(kBusUser);
    const auto server = startServer();
    const auto trusting = startClient();
    ASSERT_TRUE(
        WaitFor([&] { return log.count("run by the user with the id 65534 and not by root: ") == 1; }));
    EXPECT_EQ(trusting->connection()->peer().value().userID, kBusUser);
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "url of Safari"; }));
    const auto client = startClient([](const auto&) { return "url"; }, cmn::ServiceOwners::root);
    ASSERT_TRUE(WaitFor([&] { return log.count("and not by root, so it is not used") == 1; }));
    client->sendURL("https://example.com/", "Safari", 1);
    EXPECT_EQ(log.count("Failed to get remote object -- %s"), 1U);
    EXPECT_FALSE(client->connected());
}

TEST_F(UserAgentDBusTest, ADatabaseOfUsersThatDoesNotAnswerHoldsUpNoOtherConnection) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can play several users";
    }
    constexpr unsigned kBusUser = 65'534;
    bus.kill();
    bus.startAs(kBusUser);
    const auto server = startServer();
    slowUsers.mutex.lock();
    const auto client = startClient();
    const bool asked = WaitFor([&] { return slowUsers.asked > 0; });
    RawPeer other(bus.address());
    const QDBusMessage version =
        other.call(RawPeer::message(kUserAgentService, kUserAgentPath, kUserAgentService, "Version"));
    const bool known = client->connection()->peer().has_value();
    slowUsers.mutex.unlock();
    EXPECT_TRUE(asked);
    EXPECT_EQ(version.arguments(), QVariantList{QStringLiteral("1.0")}) << "of the same loop";
    EXPECT_FALSE(known) << "nobody is taken for root's meanwhile";
    ASSERT_TRUE(WaitFor([&] { return client->connection()->peer().has_value(); }));
    EXPECT_EQ(client->connection()->peer()->userID, kBusUser);
    EXPECT_TRUE(WaitFor([&] { return client->connected(); }));
}

TEST_F(UserAgentDBusTest, ADelegateThatThrowsIsAnErrorForTheDaemonNotASilence) {
    RawPeer daemon(bus.address(), goodDaemon());
    ASSERT_TRUE(daemon.own(kUserAgentService));
    const auto client =
        startClient([](const std::string&) -> std::string { throw std::runtime_error("no idea"); });
    ASSERT_TRUE(WaitFor([&] { return received.all("SetURLExtractor").size() == 1; }));
    const auto extractor = received.all("SetURLExtractor").at(0);
    const QDBusMessage answer = daemon.call(RawPeer::message(
        extractor.sender, extractor.arguments[0].value<QDBusObjectPath>().path().toStdString(),
        "com.tessarin.URLExtractor", "GetURL", {QStringLiteral("Safari")}));
    EXPECT_EQ(answer.errorName(), "org.freedesktop.DBus.Error.Failed");
    EXPECT_THAT(answer.errorMessage().toStdString(), HasSubstr("not answered"));
}

TEST_F(UserAgentDBusTest, AnInterruptedClientComesBackAndRegistersANewExtractor) {
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

TEST_F(UserAgentDBusTest, AClientFindsADaemonThatComesLater) {
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

TEST_F(UserAgentDBusTest, AClientSurvivesTheLossOfTheBus) {
    auto server = startServer();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    bus.kill();
    ASSERT_TRUE(WaitFor([&] { return log.count("Did invalidate -- reconnecting") >= 2; }));
    bus.start();
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && server->getURL("Safari") == "url of Safari"; }));
}

TEST_F(UserAgentDBusTest, ADaemonThatAnswersTheVersionWronglyIsWarnedAbout) {
    RawPeer daemon(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createReply(QVariantList{1.0}));
    });
    ASSERT_TRUE(daemon.own(kUserAgentService));
    const auto client = startClient();
    EXPECT_TRUE(WaitFor([&] {
        return log.count("Remote object proxy error --  com.tessarin.UserAgent") == 1 &&
               log.count("Failed to get remote object -- com.tessarin.UserAgent") == 1;
    }));
    EXPECT_FALSE(client->connected());
}

TEST_F(UserAgentDBusTest, ADaemonThatNeverAnswersStillGetsReports) {
    RawPeer daemon(bus.address(),
                   [&](const QDBusMessage& message, const QDBusConnection&) { received.add(message); });
    ASSERT_TRUE(daemon.own(kUserAgentService));
    const auto client = startClient();
    client->sendURL("https://example.com/", "Safari", 1);
    ASSERT_TRUE(WaitFor([&] { return received.all("SendURL").size() == 1; }));
    EXPECT_FALSE(client->connected());
}

TEST_F(UserAgentDBusTest, ReportsNeverWaitWhateverTheStateOfTheDaemon) {
    const auto start = std::chrono::steady_clock::now();
    const auto client = startClient();  // nobody there yet
    for (int i = 0; i < 1000; ++i) {
        client->sendURL("https://example.com/", "Safari", i);
    }
    bus.freeze();
    const auto frozen = startClient();
    for (int i = 0; i < 1000; ++i) {
        client->sendURL("https://example.com/", "Safari", i);
        frozen->sendURL("https://example.com/", "Safari", i);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    bus.thaw();
}

TEST_F(UserAgentDBusTest, ADroppedAgentLeavesTheBus) {
    const auto server = startServer();
    {
        const cmn::UserAgentXPCClient agent([](const std::string&) { return std::string(); }, queues,
                                            transport);
        ASSERT_TRUE(WaitFor([&] { return log.count("URLExtractor has been set") == 1; }));
    }
    EXPECT_TRUE(WaitFor([&] { return log.count("Connection has been invalidated") == 1; }));
}

}  // namespace
