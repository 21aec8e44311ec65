#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <QDBusConnectionInterface>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "HostProcess.h"
#include "ServiceNames.h"
#include "support/BusWorld.h"
#include "support/RawPeer.h"
#include "xpccommon/UserAgentObjCXPCClient.h"

// The service host as its users see it: a process on a bus.
namespace {

using namespace std::chrono_literals;
using fake::RawPeer;
using fake::WaitFor;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class ServiceHostTest : public fake::BusWorld {
 protected:
    std::shared_ptr<cmn::UserAgentObjCXPCClient> startClient(
        cmn::URLExtractorDelegate delegate = [](const auto& name) { return "url of " + name; }) {
        auto client =
            std::make_shared<cmn::UserAgentObjCXPCClient>(std::move(delegate), hurried(kHurry), transport);
        client->connect();
        return client;
    }
    std::unique_ptr<HostProcess> startHost() const {
        auto host = std::make_unique<HostProcess>(bus.address());
        EXPECT_TRUE(host->isReady()) << host->process().errors();
        return host;
    }
    static QDBusMessage sendURL(const QString& url, const QString& browser, int pid) {
        return RawPeer::message(kAgent, kAgentPath, kAgent, "SendURL", {url, browser, pid});
    }
};

TEST_F(ServiceHostTest, SaysThatItIsADevelopmentTool) {
    for (const char* option : {"--help", "-h"}) {
        HostProcess host(bus.address(), {option});
        EXPECT_EQ(host.process().wait(), 0);
        std::string text;
        while (const auto line = host.process().readLine()) {
            text += *line + "\n";
        }
        EXPECT_THAT(text, AllOf(HasSubstr("development tool"), HasSubstr("--bus"), HasSubstr("--json"),
                                HasSubstr("--log-file"), HasSubstr("--log-level"), HasSubstr("--settings"),
                                HasSubstr("--make-settings"), HasSubstr("--classifiers"),
                                HasSubstr("--records"), HasSubstr("--scan-limit"),
                                HasSubstr("--scan-seconds"), HasSubstr("getURL"), HasSubstr("reload")));
    }
}

TEST_F(ServiceHostTest, RefusesBadArgumentsWithStatus2) {
    const std::vector<std::vector<std::string>> bad = {{"--nonsense"},
                                                       {"file"},
                                                       {"--bus"},
                                                       {"--bus", "other"},
                                                       {"--bus="},
                                                       {"--log-level", "Loud"},
                                                       {"--log-file"},
                                                       {"--settings"},
                                                       {"--make-settings"},
                                                       {"--scan-limit", "0"},
                                                       {"--scan-limit", "-1"},
                                                       {"--scan-limit", "1k"},
                                                       {"--scan-limit", ""},
                                                       {"--scan-limit", "1073741825"},
                                                       {"--scan-limit", "99999999999999999999"},
                                                       {"--scan-seconds", "0"},
                                                       {"--scan-seconds", "3601"},
                                                       {"--scan-seconds", "1.5"}};
    for (const auto& arguments : bad) {
        HostProcess host(bus.address(), arguments);
        EXPECT_EQ(host.process().wait(), 2) << arguments[0];
        EXPECT_THAT(host.process().errors(), AllOf(StartsWith("TessarinServiceHost: "), HasSubstr("--help")));
    }
}

TEST_F(ServiceHostTest, EndsWithStatus1WithoutABus) {
    HostProcess host("unix:path=/nonexistent/bus");
    EXPECT_EQ(host.process().wait(), 1);
    // Either service may be the first to find out.
    const std::string reason = " on the system bus: unix:path=/nonexistent/bus: No such file or directory";
    EXPECT_THAT(
        host.process().errors(),
        testing::AnyOf(
            HasSubstr("TessarinServiceHost: cannot listen as com.tessarin.UserAgent" + reason),
            HasSubstr("TessarinServiceHost: cannot listen as com.tessarin.FinderExtension" + reason)));
}

TEST_F(ServiceHostTest, EndsWithStatus1WhenTheNameIsTaken) {
    const auto first = startHost();
    HostProcess second(bus.address());
    EXPECT_EQ(second.process().wait(), 1);
    EXPECT_THAT(second.process().errors(), HasSubstr("the name is already taken by another process"));
    EXPECT_FALSE(first->process().wait(0ms)) << "the first is not disturbed";
}

TEST_F(ServiceHostTest, ListensAgainWhenTheBusIsBack) {
    const auto host = startHost();
    bus.kill();
    std::vector<std::string> lost;
    for (int i = 0; i < 2; ++i) {
        const auto event = host->event();
        ASSERT_TRUE(event.IsObject());
        EXPECT_STREQ(event["event"].GetString(), "lost");
        lost.emplace_back(event["service"].GetString());
    }
    EXPECT_THAT(lost, testing::UnorderedElementsAre(kAgent, "com.tessarin.FinderExtension"));
    bus.start();
    ASSERT_TRUE(host->isReady());
    EXPECT_THAT(host->process().errors(), HasSubstr("can no longer listen"));
    const QDBusMessage answer =
        RawPeer(bus.address()).call(RawPeer::message(kAgent, kAgentPath, kAgent, "Version"));
    EXPECT_EQ(answer.arguments(), QVariantList{QStringLiteral("1.0")});
}

TEST_F(ServiceHostTest, ListensOnTheBusItIsToldTo) {
    HostProcess host("unix:path=/nonexistent/bus", {"--bus", "session"});
    EXPECT_EQ(host.process().wait(), 1);
    EXPECT_THAT(host.process().errors(), HasSubstr("on the session bus"));
}

TEST_F(ServiceHostTest, SaysWhenItIsReady) {
    HostProcess host(bus.address());
    std::vector<std::string> services;
    for (int i = 0; i < 2; ++i) {
        const auto ready = host.event();
        ASSERT_TRUE(ready.IsObject());
        EXPECT_STREQ(ready["event"].GetString(), "ready");
        EXPECT_STREQ(ready["bus"].GetString(), "system");
        EXPECT_EQ(ready["pid"].GetInt(), host.process().pid());
        services.emplace_back(ready["service"].GetString());
        EXPECT_TRUE(RawPeer(bus.address()).hasOwner(services.back()));
    }
    EXPECT_THAT(services, testing::UnorderedElementsAre(kAgent, "com.tessarin.FinderExtension"));
}

TEST_F(ServiceHostTest, WritesEachReportAtOnceAsOneLineOfJSON) {
    const auto host = startHost();
    const RawPeer agent(bus.address());
    const QString texts[] = {
        QStringLiteral("https://example.com/?a=1&b=\"2\"\\"), QStringLiteral("line\nbreak\r\t\x01\x7f"),
        QStringLiteral("\u00e4\u20ac\U0001F98A\u2028"), QString(), QString(100'000, QLatin1Char('x'))};
    int pid = -1;
    for (const QString& text : texts) {
        agent.send(sendURL(text, QStringLiteral("Safari"), pid));
        const auto event = host->event();
        ASSERT_TRUE(event.IsObject());
        EXPECT_STREQ(event["event"].GetString(), "url");
        EXPECT_EQ(QString::fromUtf8(event["url"].GetString()), text);
        EXPECT_STREQ(event["browser"].GetString(), "Safari");
        EXPECT_EQ(event["pid"].GetInt(), pid++);
        EXPECT_EQ(event["user"].GetInt64(), geteuid());
    }
}

TEST_F(ServiceHostTest, WritesReadableTextWithoutJSON) {
    HostProcess host(bus.address(), {});
    const std::vector<std::string> ready{host.process().readLine().value_or(""),
                                         host.process().readLine().value_or("")};
    EXPECT_THAT(ready, testing::UnorderedElementsAre(
                           StartsWith("ready service=\"com.tessarin.FinderExtension\" bus=\"system\" pid="),
                           StartsWith("ready service=\"com.tessarin.UserAgent\" bus=\"system\" pid=")));
    const RawPeer agent(bus.address());
    agent.send(sendURL(QStringLiteral("https://a/\n"), QStringLiteral("Safari"), 5));
    EXPECT_EQ(host.process().readLine(),
              "url url=\"https://a/\\n\" browser=\"Safari\" pid=5 user=" + std::to_string(geteuid()));
}

TEST_F(ServiceHostTest, AsksTheAgentOnCommand) {
    const auto host = startHost();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    // The agent may still be registering its extractor.
    rapidjson::Document answer;
    ASSERT_TRUE(WaitFor([&] {
        host->process().write("getURL  Google Chrome (Beta) \n");
        answer = host->event("getURL");
        return answer.IsObject() && answer["url"].GetStringLength() > 0;
    }));
    EXPECT_STREQ(answer["browser"].GetString(), "Google Chrome (Beta)");
    EXPECT_STREQ(answer["url"].GetString(), "url of Google Chrome");
    host->process().write("getURL Firefox\ngetURL\n");
    answer = host->event("getURL");
    EXPECT_STREQ(answer["url"].GetString(), "");
    EXPECT_TRUE(host->event("getURL").IsObject());
}

TEST_F(ServiceHostTest, AQuestionThatWaitsHoldsUpNeitherReportsNorCommands) {
    const auto host = startHost();
    RawPeer agent(bus.address(), [](const QDBusMessage&, const QDBusConnection&) {});  // never answers
    agent.call(RawPeer::message(kAgent, kAgentPath, kAgent, "SetURLExtractor",
                                {QVariant::fromValue(QDBusObjectPath("/extractor"))}));
    host->process().write("getURL Safari\n");
    agent.send(sendURL(QStringLiteral("u"), QStringLiteral("Safari"), 1));
    auto event = host->event();
    ASSERT_TRUE(event.IsObject());
    EXPECT_STREQ(event["event"].GetString(), "url") << "the answer to getURL comes three seconds later";
    host->process().write("what is this\n");
    event = host->event();
    ASSERT_TRUE(event.IsObject());
    EXPECT_STREQ(event["event"].GetString(), "error");
    EXPECT_STREQ(event["message"].GetString(), "unknown command: what is this");
    host->process().write("quit\n");
    EXPECT_EQ(host->process().wait(2s), 0) << "nor the end";
}

TEST_F(ServiceHostTest, WritesValidJSONForBytesThatAreNoUTF8) {
    const auto host = startHost();
    host->process().write("getURL a\xff\xfe\xc3\n");
    EXPECT_STREQ(host->event("getURL")["browser"].GetString(), "a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    host->process().write("\x80\n");
    EXPECT_STREQ(host->event("error")["message"].GetString(), "unknown command: \xef\xbf\xbd");
}

TEST_F(ServiceHostTest, AnOverlongCommandIsGivenUpAndTheNextOneWorks) {
    const auto host = startHost();
    host->process().write(std::string(200'000, 'x') + "\ngetURL Firefox\n");
    const auto event = host->event();
    ASSERT_TRUE(event.IsObject());
    EXPECT_STREQ(event["event"].GetString(), "getURL");
}

TEST_F(ServiceHostTest, EndsWithStatus0AfterQuitAndAfterEitherSignal) {
    for (const int number : {0, SIGTERM, SIGINT}) {
        const auto host = startHost();
        number == 0 ? host->process().write("quit\n") : host->process().signal(number);
        EXPECT_EQ(host->process().wait(), 0) << number;
    }
    EXPECT_FALSE(RawPeer(bus.address()).hasOwner(kAgent));
}

TEST_F(ServiceHostTest, TheEndOfTheInputKeepsItRunning) {
    const auto host = startHost();
    host->process().write("getURL Firefox");  // the unfinished line counts
    host->process().closeInput();
    EXPECT_TRUE(host->event("getURL").IsObject());
    const RawPeer agent(bus.address());
    agent.send(sendURL(QStringLiteral("u"), QStringLiteral("Safari"), 1));
    EXPECT_TRUE(host->event("url").IsObject());
    host->process().signal(SIGTERM);
    EXPECT_EQ(host->process().wait(), 0);
}

TEST_F(ServiceHostTest, StopLeavesTheBusAndKeepsRunning) {
    const auto host = startHost();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    host->process().write("stop\n");
    EXPECT_TRUE(host->event("stopped").IsObject());
    EXPECT_TRUE(WaitFor([&] { return log.count("Did interrupt -- reconnecting") == 1; }));
    EXPECT_FALSE(host->process().wait(0ms));
    host->process().write("quit\n");
    EXPECT_EQ(host->process().wait(), 0);
}

TEST_F(ServiceHostTest, ALogFileThatCannotBeWrittenIsSaidOnceInTheErrorStream) {
    const fake::TemporaryFolder empty;
    HostProcess host(bus.address(), {"--json", "--log-file", "/nonexistent/folder/host"}, empty.path());
    ASSERT_TRUE(host.isReady());
    host.process().write("quit\n");
    EXPECT_EQ(host.process().wait(), 0);
    const std::string text = host.process().errors();
    EXPECT_THAT(text, AllOf(HasSubstr("The log cannot be written to /nonexistent/folder/host_0.log, so it "
                                      "goes to the standard error stream\n"),
                            HasSubstr("Listening as")));
    EXPECT_EQ(text.find("cannot be written"), text.rfind("cannot be written"));
    EXPECT_TRUE(std::filesystem::is_empty(empty.path())) << "and nothing into the working directory";
}

TEST_F(ServiceHostTest, WritesItsLogToTheFileOrToTheErrorStream) {
    fake::TemporaryFolder folder;
    {
        HostProcess host(bus.address(), {"--log-file", (folder / "host").string(), "--log-level=Trace"});
        ASSERT_TRUE(host.process().readLine());
        host.process().write("quit\n");
        EXPECT_EQ(host.process().wait(), 0);
        EXPECT_EQ(host.process().errors(), "");
        std::ifstream file(folder / "host_0.log");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        EXPECT_THAT(text, AllOf(HasSubstr("UserAgentObjCXPCServer started"), HasSubstr("Listening as")));
    }
    const fake::TemporaryFolder empty;
    HostProcess host(bus.address(), {"--json"}, empty.path());
    ASSERT_TRUE(host.isReady());
    host.process().write("quit\n");
    EXPECT_EQ(host.process().wait(), 0);
    EXPECT_THAT(host.process().errors(),
                AllOf(HasSubstr("Listening as"), testing::Not(HasSubstr("[TRACE]"))));
    EXPECT_TRUE(std::filesystem::is_empty(empty.path())) << "and nothing into the working directory";
}

TEST_F(ServiceHostTest, TheClientFindsAHostThatIsKilledAndRestartedTwentyTimes) {
    const auto client = startClient();
    for (int round = 1; round <= 20; ++round) {
        const auto host = startHost();
        ASSERT_TRUE(WaitFor([&] { return client->connected(); })) << round;
        // The extractor is registered again: the host's question finds it.
        ASSERT_TRUE(WaitFor([&] {
            host->process().write("getURL Safari\n");
            return host->event("getURL")["url"].GetString() == std::string("url of Safari");
        })) << round;
        client->sendURL("https://example.com/" + std::to_string(round), "Safari", round);
        const auto report = host->event("url");
        ASSERT_TRUE(report.IsObject());
        EXPECT_EQ(report["pid"].GetInt(), round);
        host->process().signal(SIGKILL);
        EXPECT_EQ(host->process().wait(), -SIGKILL);
        ASSERT_TRUE(WaitFor(
            [&] { return log.count("Did interrupt -- reconnecting") == static_cast<unsigned>(round); }));
        ASSERT_TRUE(WaitFor([&] { return !client->connected(); })) << "set behind the log line";
    }
}

TEST_F(ServiceHostTest, AHostThatDiesWhileACallWaitsMakesTheCallFail) {
    const auto host = startHost();
    host->process().signal(SIGSTOP);
    const QDBusConnection agent =
        QDBusConnection::connectToBus(QString::fromStdString(bus.address()), QStringLiteral("agent"));
    const QDBusPendingCall call = agent.asyncCall(RawPeer::message(kAgent, kAgentPath, kAgent, "Version"));
    // Messages of one sender are passed on in their order: the call is with the host before this is answered.
    ASSERT_TRUE(agent.interface()->isServiceRegistered(kAgent).value());
    host->process().signal(SIGKILL);
    ASSERT_TRUE(WaitFor([&] { return call.isFinished(); }));
    EXPECT_EQ(call.error().name(), "org.freedesktop.DBus.Error.NoReply");
    QDBusConnection::disconnectFromBus(QStringLiteral("agent"));
}

TEST_F(ServiceHostTest, AStoppedHostHoldsUpNoClient) {
    const auto host = startHost();
    host->process().signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    const auto client = startClient();
    for (int i = 0; i < 1000; ++i) {
        client->sendURL("https://example.com/", "Safari", i);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    host->process().signal(SIGCONT);
    for (int i = 0; i < 1000; ++i) {
        const auto report = host->event("url");
        ASSERT_TRUE(report.IsObject());
        ASSERT_EQ(report["pid"].GetInt(), i) << "in their order";
    }
}

}  // namespace
