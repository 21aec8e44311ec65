#include <stdexcept>

#include "UserAgentBusFixture.h"

// The contract of the user agent service with other programs.
namespace {

using fake::RawPeer;
using fake::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

using UserAgentContractTest = UserAgentBusFixture;

TEST_F(UserAgentContractTest, TheClientSpeaksTheContract) {
    const auto daemon = startService(goodDaemon());
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && received.all("SetURLExtractor").size() == 1; }));
    client->sendURL("https://example.com/\xc3\xa4?q=1", "Google Chrome", -7);
    ASSERT_TRUE(WaitFor([&] { return received.all("SendURL").size() == 1; }));

    const auto version = received.all("Version").at(0);
    EXPECT_EQ(version.path, kAgentPath);
    EXPECT_EQ(version.interface, kAgent);
    EXPECT_EQ(version.signature, "");
    EXPECT_TRUE(version.wantsAnswer);

    const auto extractor = received.all("SetURLExtractor").at(0);
    EXPECT_EQ(extractor.signature, "o");
    EXPECT_TRUE(extractor.wantsAnswer);
    EXPECT_NE(extractor.arguments[0].value<QDBusObjectPath>().path(), "/");

    const auto report = received.all("SendURL").at(0);
    EXPECT_EQ(report.path, kAgentPath);
    EXPECT_EQ(report.interface, kAgent);
    EXPECT_EQ(report.signature, "ssi");
    EXPECT_FALSE(report.wantsAnswer);
    EXPECT_EQ(report.arguments, (QVariantList{QStringLiteral("https://example.com/ä?q=1"),
                                              QStringLiteral("Google Chrome"), -7}));
}

TEST_F(UserAgentContractTest, TheExtractorSpeaksTheContract) {
    const auto daemon = startService(goodDaemon());
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return received.all("SetURLExtractor").size() == 1; }));
    const auto extractor = received.all("SetURLExtractor").at(0);
    const std::string path = extractor.arguments[0].value<QDBusObjectPath>().path().toStdString();
    const auto ask = [&](const char* interface, const char* member, const QVariantList& arguments) {
        return daemon->call(RawPeer::message(extractor.sender, path, interface, member, arguments));
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

TEST_F(UserAgentContractTest, TheServerSpeaksTheContract) {
    const auto server = startServer();
    RawPeer agent(bus.address(), [&](const QDBusMessage& message, const QDBusConnection& connection) {
        received.add(message);
        connection.send(message.createReply(QStringLiteral("http://here/")));
    });
    const QDBusMessage version = agent.call(message("Version"));
    EXPECT_EQ(version.signature(), "s");
    EXPECT_EQ(version.arguments(), QVariantList{QStringLiteral("1.0")});
    const QDBusMessage set = setExtractor(agent);
    EXPECT_EQ(set.signature(), "b");
    EXPECT_EQ(set.arguments(), QVariantList{true});
    agent.send(message("SendURL", {QStringLiteral("http://a/"), QStringLiteral("Firefox"), 3}));
    EXPECT_TRUE(WaitFor([&] { return reports.all() == std::vector<std::string>{"Firefox 3 http://a/"}; }));

    EXPECT_EQ(server->getURL("Safari"), "http://here/");
    const auto question = received.all("GetURL").at(0);
    EXPECT_EQ(question.path, "/my/extractor");
    EXPECT_EQ(question.interface, "com.tessarin.URLExtractor");
    EXPECT_EQ(question.signature, "s");
    EXPECT_EQ(question.arguments, QVariantList{QStringLiteral("Safari")});
}

TEST_F(UserAgentContractTest, AReportThatAsksForAnAnswerAllTheSameGetsAnEmptyOne) {
    const auto server = startServer();
    RawPeer agent(bus.address());
    const QDBusMessage answer = agent.call(message("SendURL", {QStringLiteral("u"), QStringLiteral("b"), 1}));
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage);
    EXPECT_THAT(answer.arguments(), testing::IsEmpty());
}

TEST_F(UserAgentContractTest, AnExtractorAtTheRootPathStandsForNone) {
    const auto server = startServer();
    RawPeer agent(bus.address(),
                  [&](const QDBusMessage& message, const QDBusConnection&) { received.add(message); });
    EXPECT_EQ(setExtractor(agent).arguments(), QVariantList{true});
    EXPECT_EQ(setExtractor(agent, "/").arguments(), QVariantList{true});
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(received.all("GetURL"), SizeIs(0));
}

TEST_F(UserAgentContractTest, AnExtractorThatAnswersWronglyGivesTheEmptyURL) {
    const auto server = startServer();
    RawPeer agent(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createReply(QVariantList{5}));
    });
    setExtractor(agent);
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_EQ(log.count("GetURL -- failed"), 1U);
}

TEST_F(UserAgentContractTest, TheErrorOfAnExtractorForgesNoLine) {
    const auto server = startServer();
    RawPeer agent(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createErrorReply("org.example.Error", "no\n[ERROR] forged"));
    });
    setExtractor(agent);
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_THAT(log.linesWith("GetURL -- failed"), ElementsAre(HasSubstr("no\\x0a[ERROR] forged")));
}

TEST_F(UserAgentContractTest, ADelegateThatThrowsIsAnErrorForTheDaemonNotASilence) {
    const auto daemon = startService(goodDaemon());
    const auto client =
        startClient([](const std::string&) -> std::string { throw std::runtime_error("no idea"); });
    ASSERT_TRUE(WaitFor([&] { return received.all("SetURLExtractor").size() == 1; }));
    const auto extractor = received.all("SetURLExtractor").at(0);
    const QDBusMessage answer = daemon->call(RawPeer::message(
        extractor.sender, extractor.arguments[0].value<QDBusObjectPath>().path().toStdString(),
        "com.tessarin.URLExtractor", "GetURL", {QStringLiteral("Safari")}));
    EXPECT_EQ(answer.errorName(), "org.freedesktop.DBus.Error.Failed");
    EXPECT_THAT(answer.errorMessage().toStdString(), HasSubstr("not answered"));
}

TEST_F(UserAgentContractTest, ADaemonThatAnswersTheVersionWronglyIsWarnedAbout) {
    const auto daemon = startService([](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createReply(QVariantList{1.0}));
    });
    const auto client = startClient();
    EXPECT_TRUE(WaitFor([&] {
        return log.count("Remote object proxy error --  com.tessarin.UserAgent") == 1 &&
               log.count("Failed to get remote object -- com.tessarin.UserAgent") == 1;
    }));
    EXPECT_FALSE(client->connected());
}

}  // namespace
