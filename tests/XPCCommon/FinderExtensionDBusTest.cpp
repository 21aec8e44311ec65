#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <atomic>
#include <future>
#include <iostream>
#include <mutex>
#include <thread>

#include "common/proto_settings.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/HurriedDispatch.h"
#include "support/HurriedTransport.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/RawPeer.h"
#include "support/ReceivedCalls.h"
#include "support/SystemLogCapture.h"
#include "support/WaitFor.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"
#include "xpccommon/FinderExtensionXPCClient.h"

// The Finder extension service over a real bus: its contract with other programs, and both ends together.
namespace {

using namespace std::chrono_literals;
using fake::RawPeer;
using fake::WaitFor;
using fake::WaitInHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr const char* kService = "com.tessarin.FinderExtension";
constexpr const char* kPath = "/com/tessarin/FinderExtension";
constexpr const char* kDelegate = "com.tessarin.FinderExtensionDelegate";

using StringMap = QMap<QString, QString>;
using BoolMap = QMap<QString, bool>;

// Answers with what it was asked, so that no answer can be taken for another one's.
class EchoScanner : public cmn::IFinderExtensionOperations {
 public:
    bool CheckEncryptionStatus(const std::string& path,
                               const std::optional<cmn::XPCPeer>& /*asker*/) override {
        return path.starts_with("/secret");
    }
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& /*asker*/) override {
        if (path == "/wait") {
            ++waiting;
            EXPECT_TRUE(WaitInHandler([&] { return released.load(); }));
        }
        if (path == "/fail") {
            throw std::runtime_error("cannot scan");
        }
        if (path == "/fail/oddly") {
            throw 7;  // nothing that says what it is
        }
        if (path == "/many") {
            return many;
        }
        return {{{"Name", path}, {"MatchCount", "1"}}, {{"Name", "second"}}};
    }
    std::vector<std::string> GetAllowedExtensions() override { return {"txt", "csv"}; }
    int Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& /*asker*/) override {
        if (path == "/fail/oddly") {
            throw "no standard exception";
        }
        return static_cast<int>(path.size());
    }

    std::atomic<bool> released{false};
    std::atomic<int> waiting{0};
    std::vector<cmn::ScanRecord> many;
};

class FinderExtensionDBusTest : public testing::Test {
 protected:
    static constexpr double kHurry = 1.0 / 30;  // the three seconds before a reconnect are a tenth of one
    static constexpr double kPatience = 200;    // a slow machine makes no answer late

    FinderExtensionDBusTest() {
        qDBusRegisterMetaType<StringMap>();
        qDBusRegisterMetaType<QList<StringMap>>();
        qDBusRegisterMetaType<BoolMap>();
        cmn::proto::TSettings settings;
        settings.LogLevel = "Trace";
        settings.IsExtensionIconsAvailable = true;
        settings.Products.resize(1);
        settings.Products[0].InstallPath = folder.path().string();
        settings.Products[0].NativeName = cmn::proto::GetCurrentProductNativeName();
        cmn::proto::SetSettings(settings);

        cmn::DBusXPCOptions options;
        options.systemBusAddress = bus.address();
        options.sessionBusAddress = "unix:path=/nonexistent/bus";  // nothing of this travels there
        options.onListenerEvent = [this](const cmn::DBusListenerEvent&) { ++listenerEvents; };
        transport = std::make_shared<cmn::DBusXPCTransport>(real, options);
    }
    ~FinderExtensionDBusTest() override {
        if (HasFailure()) {
            std::cerr << log.text();
            for (const std::string& line : systemLog.lines()) {
                std::cerr << line << "\n";
            }
        }
        scanner->released = true;
        transport->stop();  // peers and calls that are left let go of what they hold
        real->stop();
    }

    std::shared_ptr<cmn::FinderExtensionObjCXPCServer> startServer() {
        auto server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport);
        server->setScannerService(scanner);
        const int before = listenerEvents;
        server->start();
        EXPECT_TRUE(WaitFor([&] { return listenerEvents > before; }));
        return server;
    }
    // With the real waits: 100 milliseconds a request.
    std::shared_ptr<cmn::FinderExtensionXPCClient> startClient(double waits = 1) {
        auto client = std::make_shared<cmn::FinderExtensionXPCClient>(
            std::make_shared<fake::HurriedDispatch>(real, kHurry, waits),
            std::make_shared<fake::HurriedTransport>(transport, waits));
        client->connect();
        return client;
    }
    std::shared_ptr<cmn::FinderExtensionXPCClient> startPatientClient() {
        auto client = startClient(kPatience);
        EXPECT_TRUE(WaitFor([&] { return client->connected(); }));
        return client;
    }
    static QDBusMessage message(const char* member, const QVariantList& arguments = {}) {
        return RawPeer::message(kService, kPath, kService, member, arguments);
    }
    static QVariant objectPath(const char* path) {
        return QVariant::fromValue(QDBusObjectPath(QString::fromLatin1(path)));
    }
    // A service that answers as the contract says, after a while.
    RawPeer::Handler goodService(std::chrono::milliseconds delay = 0ms) {
        return [this, delay](const QDBusMessage& asked, const QDBusConnection& connection) {
            received.add(asked);
            if (!asked.isReplyRequired()) {
                return;
            }
            if (asked.member() == QLatin1String("Version")) {
                connection.send(asked.createReply(QStringLiteral("1.0")));
                return;
            }
            std::this_thread::sleep_for(delay);
            connection.send(asked.createReply(answerTo(asked.member())));
        };
    }
    static QVariant answerTo(const QString& member) {
        if (member == QLatin1String("Decrypt")) {
            return 7;
        }
        if (member == QLatin1String("CheckFullDiskAccess")) {
            return true;
        }
        if (member == QLatin1String("AllowedExtensions")) {
            return QStringList{QStringLiteral("txt")};
        }
        if (member == QLatin1String("GetUIVisibilityStatuses")) {
            return QVariant::fromValue(BoolMap{{QStringLiteral("menuStatus"), true}});
        }
        return QVariant::fromValue(
            QList<StringMap>{{{QStringLiteral("Name"), QStringLiteral("\u00e4")}}, {}});
    }
    static void expectNeutralAnswers(cmn::FinderExtensionXPCClient& client) {
        EXPECT_THAT(client.getFileFilters("/f"), IsEmpty());
        EXPECT_THAT(client.allowedExtensions(), IsEmpty());
        EXPECT_EQ(client.decrypt("/d"), 2);
        EXPECT_FALSE(client.checkFullDiskAccess());
        EXPECT_THAT(client.getUIVisibilityStatuses(),
                    UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", false),
                                         Pair("agentIconDisable", false)));
    }

    fake::LogCapture log;
    fake::SystemLogCapture systemLog;
    fake::TemporaryFolder folder;
    fake::PrivateBus bus;
    std::shared_ptr<cmn::LinuxDispatch> real = std::make_shared<cmn::LinuxDispatch>();
    std::shared_ptr<cmn::DBusXPCTransport> transport;
    std::shared_ptr<EchoScanner> scanner = std::make_shared<EchoScanner>();
    std::atomic<int> listenerEvents{0};
    fake::ReceivedCalls received;
};

// The contract.

TEST_F(FinderExtensionDBusTest, TheClientSpeaksTheContract) {
    RawPeer service(bus.address(), goodService());
    ASSERT_TRUE(service.own(kService));
    const auto client = startPatientClient();
    EXPECT_THAT(client->getFileFilters("/a \xc3\xa4"),
                ElementsAre(cmn::ScanRecord{{"Name", "\xc3\xa4"}}, cmn::ScanRecord{}));
    EXPECT_THAT(client->allowedExtensions(), ElementsAre("txt"));
    EXPECT_EQ(client->decrypt("/d"), 7);
    EXPECT_TRUE(client->checkFullDiskAccess());
    EXPECT_THAT(client->getUIVisibilityStatuses(), ElementsAre(Pair("menuStatus", true)));
    client->checkEncryptionStatus("/e");
    client->sendLogMessage("text", "Warn");
    ASSERT_TRUE(WaitFor([&] { return received.all("SendLogMessage").size() == 1; }));

    const auto expect = [&](const char* member, const char* signature, bool wantsAnswer,
                            const QVariantList& arguments) {
        const auto calls = received.all(member);
        ASSERT_THAT(calls, SizeIs(testing::Ge(1U))) << member;
        EXPECT_EQ(calls[0].path, kPath);
        EXPECT_EQ(calls[0].interface, kService);
        EXPECT_EQ(calls[0].signature, signature) << member;
        EXPECT_EQ(calls[0].wantsAnswer, wantsAnswer) << member;
        EXPECT_EQ(calls[0].arguments.mid(0, arguments.size()), arguments) << member;
    };
    expect("Version", "", true, {});
    expect("GetScanResult", "s", true, {QStringLiteral("/a ä")});
    expect("AllowedExtensions", "", true, {});
    expect("Decrypt", "s", true, {QStringLiteral("/d")});
    expect("CheckFullDiskAccess", "", true, {});
    expect("GetUIVisibilityStatuses", "", true, {});
    expect("CheckEncryptionStatus", "so", false, {QStringLiteral("/e")});
    expect("SendLogMessage", "ss", false, {QStringLiteral("text"), QStringLiteral("Warn")});
    EXPECT_THAT(received.all("Version"), SizeIs(8)) << "the validation's, and one before each request";
}

TEST_F(FinderExtensionDBusTest, TheServerSpeaksTheContract) {
    const auto server = startServer();
    const RawPeer peer(bus.address());
    const auto ask = [&](const char* member, const QVariantList& arguments, const char* signature) {
        const QDBusMessage answer = peer.call(message(member, arguments));
        EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
        EXPECT_EQ(answer.signature(), signature) << member;
        return answer.arguments().isEmpty() ? QVariant() : answer.arguments()[0];
    };
    EXPECT_EQ(ask("Version", {}, "s"), QStringLiteral("1.0"));
    EXPECT_EQ(ask("Decrypt", {QStringLiteral("/four")}, "i"), 5);
    EXPECT_EQ(qdbus_cast<QList<StringMap>>(ask("GetScanResult", {QStringLiteral("/f")}, "aa{ss}")),
              (QList<StringMap>{{{QStringLiteral("Name"), QStringLiteral("/f")},
                                 {QStringLiteral("MatchCount"), QStringLiteral("1")}},
                                {{QStringLiteral("Name"), QStringLiteral("second")}}}));
    EXPECT_EQ(ask("AllowedExtensions", {}, "as"),
              (QStringList{QStringLiteral("txt"), QStringLiteral("csv")}));
    EXPECT_EQ(ask("CheckFullDiskAccess", {}, "b").typeId(), QMetaType::Bool);
    EXPECT_EQ(qdbus_cast<BoolMap>(ask("GetUIVisibilityStatuses", {}, "a{sb}")),
              (BoolMap{{QStringLiteral("menuStatus"), false},
                       {QStringLiteral("iconsStatus"), true},
                       {QStringLiteral("agentIconDisable"), false}}));
    const QDBusMessage xml =
        peer.call(RawPeer::message(kService, kPath, "org.freedesktop.DBus.Introspectable", "Introspect"));
    EXPECT_THAT(xml.arguments()[0].toString().toStdString(),
                testing::AllOf(HasSubstr("GetScanResult"), HasSubstr("aa{ss}"), HasSubstr("a{sb}"),
                               HasSubstr("NoReply")));
}

TEST_F(FinderExtensionDBusTest, TheServerRefusesOtherTypes) {
    const auto server = startServer();
    const RawPeer peer(bus.address());
    EXPECT_EQ(peer.call(message("Decrypt", {5})).errorName(), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(peer.call(message("GetScanResult")).errorName(), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(
        peer.call(message("CheckEncryptionStatus", {QStringLiteral("/e"), QStringLiteral("/d")})).errorName(),
        "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(peer.call(message("DidCheckEncryptionStatus", {true})).errorName(),
              "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST_F(FinderExtensionDBusTest, TheServerCallsTheDelegateAsTheContractSays) {
    const auto server = startServer();
    RawPeer peer(bus.address(), goodService());
    peer.send(message("CheckEncryptionStatus", {QStringLiteral("/secret/f"), objectPath("/my/delegate")}));
    peer.send(message("CheckEncryptionStatus", {QStringLiteral("/open/f"), objectPath("/my/delegate")}));
    peer.send(message("CheckEncryptionStatus", {QString(), objectPath("/other/delegate")}));
    peer.send(message("CheckEncryptionStatus", {QStringLiteral("/secret/f"), objectPath("/")}));
    peer.call(message("Version"));  // answered after what came before
    ASSERT_TRUE(WaitFor([&] { return received.all("DidCheckEncryptionStatus").size() == 3; }));
    const auto calls = received.all("DidCheckEncryptionStatus");
    EXPECT_EQ(calls[0].path, "/my/delegate");
    EXPECT_EQ(calls[0].interface, kDelegate);
    EXPECT_EQ(calls[0].signature, "b");
    EXPECT_EQ(calls[0].arguments, QVariantList{true});
    EXPECT_EQ(calls[1].arguments, QVariantList{false});
    EXPECT_EQ(calls[2].path, "/other/delegate");
    EXPECT_EQ(calls[2].arguments, QVariantList{false}) << "an empty path is not encrypted";
}

TEST_F(FinderExtensionDBusTest, DelegatesThatNeverAnswerHoldUpNobody) {
    const auto server = startServer();
    RawPeer peer(bus.address(),
                 [&](const QDBusMessage& asked, const QDBusConnection&) { received.add(asked); });
    // More than a bus lets one connection wait for at the same time.
    for (int i = 0; i < 500; ++i) {
        peer.send(message("CheckEncryptionStatus", {QStringLiteral("/e"), objectPath("/my/delegate")}));
    }
    EXPECT_TRUE(WaitFor([&] { return received.all("DidCheckEncryptionStatus").size() == 500; }));
    EXPECT_FALSE(received.all("DidCheckEncryptionStatus")[0].wantsAnswer);
}

TEST_F(FinderExtensionDBusTest, TheClientsDelegateSpeaksTheContract) {
    RawPeer service(bus.address(), goodService());
    ASSERT_TRUE(service.own(kService));
    const auto client = startPatientClient();
    std::promise<bool> answered;
    client->setCompleteblock([&](bool encrypted) { answered.set_value(encrypted); });
    client->checkEncryptionStatus("/e");
    ASSERT_TRUE(WaitFor([&] { return received.all("CheckEncryptionStatus").size() == 1; }));
    const auto asked = received.all("CheckEncryptionStatus")[0];
    const std::string path = asked.arguments[1].value<QDBusObjectPath>().path().toStdString();
    EXPECT_NE(path, "/");
    const auto tell = [&](const QVariantList& arguments) {
        return service.call(
            RawPeer::message(asked.sender, path, kDelegate, "DidCheckEncryptionStatus", arguments));
    };
    EXPECT_EQ(tell({QStringLiteral("yes")}).errorName(), "org.freedesktop.DBus.Error.InvalidArgs");
    const QDBusMessage answer = tell({true});
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(answer.signature(), "");
    EXPECT_TRUE(answered.get_future().get());
    client->setCompleteblock(nullptr);
    EXPECT_EQ(tell({true}).type(), QDBusMessage::ReplyMessage) << "without a block it is no error either";
}

TEST_F(FinderExtensionDBusTest, TheClientsDelegateListensToTheServiceOnly) {
    RawPeer service(bus.address(), goodService());
    ASSERT_TRUE(service.own(kService));
    const auto client = startPatientClient();
    std::atomic<int> answers{0};
    client->setCompleteblock([&](bool) { ++answers; });
    client->checkEncryptionStatus("/e");
    client->checkEncryptionStatus("/e");
    ASSERT_TRUE(WaitFor([&] { return received.all("CheckEncryptionStatus").size() == 2; }));
    const auto asked = received.all("CheckEncryptionStatus");
    EXPECT_EQ(asked[0].arguments[1], asked[1].arguments[1]) << "one object, one path";
    const RawPeer stranger(bus.address());
    EXPECT_EQ(stranger
                  .call(RawPeer::message(asked[0].sender,
                                         asked[0].arguments[1].value<QDBusObjectPath>().path().toStdString(),
                                         kDelegate, "DidCheckEncryptionStatus", {true}))
                  .errorName(),
              "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(answers, 0);
    client->setCompleteblock(nullptr);
}

// Both ends together.

TEST_F(FinderExtensionDBusTest, BothEndsExchangeEverything) {
    const auto server = startServer();
    const auto client = startPatientClient();
    EXPECT_THAT(client->getFileFilters("/a"),
                ElementsAre(cmn::ScanRecord{{"Name", "/a"}, {"MatchCount", "1"}},
                            cmn::ScanRecord{{"Name", "second"}}));
    EXPECT_THAT(client->allowedExtensions(), ElementsAre("txt", "csv"));
    EXPECT_EQ(client->decrypt("/four"), 5);
    client->checkFullDiskAccess();
    EXPECT_THAT(client->getUIVisibilityStatuses(),
                UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", true),
                                     Pair("agentIconDisable", false)));
    std::mutex mutex;
    std::vector<bool> answers;
    client->setCompleteblock([&](bool encrypted) {
        const std::lock_guard lock(mutex);
        answers.push_back(encrypted);
    });
    for (const char* path : {"/secret/f", "/open/f", ""}) {
        client->checkEncryptionStatus(path);
    }
    ASSERT_TRUE(WaitFor([&] {
        const std::lock_guard lock(mutex);
        return answers.size() == 3;
    }));
    EXPECT_THAT(answers, ElementsAre(true, false, false));
    client->setCompleteblock(nullptr);
    EXPECT_THAT(systemLog.lines(), IsEmpty());
}

TEST_F(FinderExtensionDBusTest, PathsTravelUnchangedWhateverTheyHold) {
    const auto server = startServer();
    const auto client = startPatientClient();
    for (const std::string& path :
         {std::string(), std::string("/with\nline\tbreak"), std::string("/quote\"'\\{}%s"),
          std::string("/\xf0\x9f\xa6\x8a"), "/" + std::string(60 << 10, 'x')}) {
        EXPECT_THAT(client->getFileFilters(path),
                    Contains(cmn::ScanRecord{{"Name", path}, {"MatchCount", "1"}}))
            << path.substr(0, 100);
        EXPECT_EQ(client->decrypt(path), static_cast<std::int32_t>(path.size()));
    }
}

TEST_F(FinderExtensionDBusTest, APathThatIsNoUTF8IsRepairedOnTheWay) {
    const auto server = startServer();
    const auto client = startPatientClient();
    const auto records = client->getFileFilters("/caf\xe9/f");
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[0].at("Name"), "/caf\xef\xbf\xbd/f");
}

TEST_F(FinderExtensionDBusTest, APathTooLargeToBeSentGetsTheNeutralAnswer) {
    const auto server = startServer();
    const auto client = startClient();
    for (const std::string& path : {std::string(17 << 20, 'x'), std::string(11 << 20, '\xff')}) {
        EXPECT_THAT(client->getFileFilters(path), IsEmpty());
    }
    EXPECT_TRUE(WaitFor([&] {
        const auto lines = systemLog.lines();
        return std::ranges::count_if(lines, [](const std::string& line) {
                   return line.find("too large") != std::string::npos;
               }) == 2;
    })) << "what is wrong grows when it is repaired";
    const auto patient = startPatientClient();
    EXPECT_THAT(patient->allowedExtensions(), SizeIs(2));
}

TEST_F(FinderExtensionDBusTest, TenThousandRecordsArriveInTheirOrder) {
    for (int i = 0; i < 10'000; ++i) {
        scanner->many.push_back({{"Name", "classifier " + std::to_string(i)},
                                 {"MatchCount", std::to_string(i)},
                                 {"costUsd", "0.25"},
                                 {"SensitiveType", "1"}});
    }
    const auto server = startServer();
    const auto client = startPatientClient();
    EXPECT_EQ(client->getFileFilters("/many"), scanner->many);
}

TEST_F(FinderExtensionDBusTest, AFailingScanIsTheCallersNeutralAnswerAndNothingElse) {
    const auto server = startServer();
    const auto client = startPatientClient();
    EXPECT_THAT(client->getFileFilters("/fail"), IsEmpty());
    EXPECT_TRUE(WaitFor([&] {
        return log.count("Message com.tessarin.FinderExtension.GetScanResult(s) of") == 1 &&
               log.count("failed: cannot scan") == 1;
    }));
    EXPECT_THAT(client->allowedExtensions(), SizeIs(2));
}

TEST_F(FinderExtensionDBusTest, WhateverAScannerThrowsIsAnErrorForItsCaller) {
    const auto server = startServer();
    RawPeer client(bus.address());
    for (const char* method : {"GetScanResult", "Decrypt"}) {
        const auto answer =
            client.call(RawPeer::message(kService, kPath, kService, method, {QStringLiteral("/fail/oddly")}));
        EXPECT_EQ(answer.errorName().toStdString(), "org.freedesktop.DBus.Error.Failed") << method;
        EXPECT_EQ(answer.errorMessage().toStdString(), "not a standard exception") << method;
    }
    const auto next =
        client.call(RawPeer::message(kService, kPath, kService, "Decrypt", {QStringLiteral("1234567")}));
    EXPECT_EQ(next.arguments(), QVariantList{7}) << "the service goes on";
}

TEST_F(FinderExtensionDBusTest, OneClientsSlowScanDoesNotHoldUpAnother) {
    const auto server = startServer();
    const auto slow = startClient();
    const auto quick = startPatientClient();
    EXPECT_THAT(slow->getFileFilters("/wait"), IsEmpty());
    ASSERT_TRUE(WaitFor([&] { return scanner->waiting == 1; }));
    EXPECT_THAT(slow->allowedExtensions(), IsEmpty()) << "its own requests are served in order";
    EXPECT_THAT(quick->getFileFilters("/a"), SizeIs(2));
    EXPECT_EQ(scanner->waiting, 1);
    scanner->released = true;
    EXPECT_TRUE(WaitFor([&] { return slow->allowedExtensions().size() == 2; }))
        << "the late answers did no harm";
}

TEST_F(FinderExtensionDBusTest, AnswersTheMainThreadWithoutItsEventLoop) {
    const auto server = startServer();
    const auto client = startPatientClient();
    // No event of the main thread is processed between these.
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(client->decrypt(std::string(static_cast<std::size_t>(i), 'x')), i);
    }
}

TEST_F(FinderExtensionDBusTest, AnswersSeveralThreadsOfOneClientWithoutMixingThemUp) {
    const auto server = startServer();
    const auto client = startPatientClient();
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) {
                const std::string path = "/" + std::to_string(t) + "/" + std::to_string(i);
                const auto records = client->getFileFilters(path);
                wrong += records.size() == 2 && records[0].at("Name") == path ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(FinderExtensionDBusTest, LogLinesArriveInTheServicesLogInTheirOrder) {
    auto server = startServer();
    {
        const auto client = startPatientClient();
        for (int i = 0; i < 200; ++i) {
            client->sendLogMessage("line " + std::to_string(i), "Warn");
        }
        client->getUIVisibilityStatuses();  // answered after what came before
        server->stop();
    }
    const std::weak_ptr<cmn::FinderExtensionObjCXPCServer> weakServer = server;
    server.reset();
    ASSERT_TRUE(WaitFor([&] { return weakServer.expired(); }));
    auto lines = fake::ReadLines(folder / "com.tessarin.finderExtension_0.log");
    std::erase_if(lines, [](const std::string& line) { return line.find("] line ") == std::string::npos; });
    ASSERT_THAT(lines, SizeIs(200));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_THAT(lines[i], testing::EndsWith("] line " + std::to_string(i)));
    }
}

// A service that is absent, slow, wrong or gone.

TEST_F(FinderExtensionDBusTest, WithoutAServiceEveryRequestGetsItsNeutralAnswer) {
    const auto client = startClient();
    expectNeutralAnswers(*client);
    EXPECT_TRUE(WaitFor([&] {
        return std::ranges::count(systemLog.lines(), "FinderExtensionXPCClient -- did invalidate") > 0;
    }));
}

TEST_F(FinderExtensionDBusTest, AServiceThatAnswersTheVersionOnlyGivesNeutralAnswers) {
    RawPeer service(bus.address(), [&](const QDBusMessage& asked, const QDBusConnection& connection) {
        received.add(asked);
        if (asked.member() == QLatin1String("Version")) {
            connection.send(asked.createReply(QStringLiteral("1.0")));
        }
    });
    ASSERT_TRUE(service.own(kService));
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    expectNeutralAnswers(*client);
    EXPECT_TRUE(client->connected()) << "it does answer";
    EXPECT_TRUE(WaitFor([&] { return received.all("GetUIVisibilityStatuses").size() == 1; }));
}

TEST_F(FinderExtensionDBusTest, AServiceThatAnswersNothingIsNeverConnected) {
    RawPeer service(bus.address(),
                    [&](const QDBusMessage& asked, const QDBusConnection&) { received.add(asked); });
    ASSERT_TRUE(service.own(kService));
    const auto client = startClient(1.0 / 10);
    ASSERT_TRUE(WaitFor([&] { return received.all("Version").size() == 1; }));
    expectNeutralAnswers(*client);
    EXPECT_FALSE(client->connected());
    EXPECT_TRUE(WaitFor([&] { return received.all("Version").size() == 6; }));
    EXPECT_THAT(received.all("Decrypt"), IsEmpty());
}

TEST_F(FinderExtensionDBusTest, AServiceThatAnswersWithOtherTypesGivesNeutralAnswersAndALine) {
    RawPeer service(bus.address(), [&](const QDBusMessage& asked, const QDBusConnection& connection) {
        received.add(asked);
        connection.send(asked.createReply(
            asked.member() == QLatin1String("Version") ? QVariant(QStringLiteral("1.0")) : QVariant(2.5)));
    });
    ASSERT_TRUE(service.own(kService));
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    expectNeutralAnswers(*client);
    ASSERT_TRUE(WaitFor([&] { return systemLog.lines().size() >= 5; }));
    EXPECT_THAT(systemLog.lines(),
                testing::Each(testing::StartsWith("Failed to get remote object -- "
                                                  "org.freedesktop.DBus.Error.InvalidArgs: ")));
}

TEST_F(FinderExtensionDBusTest, AServiceWithAnotherVersionTypeIsNeverConnected) {
    RawPeer service(bus.address(), [](const QDBusMessage& asked, const QDBusConnection& connection) {
        connection.send(asked.createReply(QVariantList{1.0}));
    });
    ASSERT_TRUE(service.own(kService));
    const auto client = startClient();
    EXPECT_TRUE(WaitFor([&] {
        return !systemLog.lines().empty() &&
               systemLog.lines()[0].starts_with("Remote object proxy error --  com.tessarin.FinderExtension");
    }));
    expectNeutralAnswers(*client);
    EXPECT_FALSE(client->connected());
}

TEST_F(FinderExtensionDBusTest, AServiceThatIsSlowButInTimeIsHeard) {
    RawPeer service(bus.address(), goodService(99ms));
    ASSERT_TRUE(service.own(kService));
    const auto client = startPatientClient();
    EXPECT_EQ(client->decrypt("/d"), 7);
    EXPECT_TRUE(client->checkFullDiskAccess());
}

TEST_F(FinderExtensionDBusTest, AServiceThatIsTooSlowIsNotWaitedForAndItsLateAnswerDoesNoHarm) {
    std::atomic<bool> release{false};
    std::atomic<int> answered{0};
    RawPeer service(bus.address(), [&](const QDBusMessage& asked, const QDBusConnection& connection) {
        if (asked.member() == QLatin1String("Decrypt")) {
            EXPECT_TRUE(WaitInHandler([&] { return release.load(); }));  // as if for ten seconds
            ++answered;
        }
        connection.send(asked.createReply(asked.member() == QLatin1String("Version")
                                              ? QVariant(QStringLiteral("1.0"))
                                              : answerTo(asked.member())));
    });
    ASSERT_TRUE(service.own(kService));
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/d"), 2);
    EXPECT_FALSE(client->checkFullDiskAccess()) << "it is still busy";
    release = true;
    EXPECT_TRUE(WaitFor([&] { return client->checkFullDiskAccess(); }));
    EXPECT_EQ(answered, 1);
    EXPECT_THAT(systemLog.lines(), IsEmpty());
}

TEST_F(FinderExtensionDBusTest, AFrozenBusHoldsUpNobodyForLong) {
    const auto server = startServer();
    const auto client = startPatientClient();
    const auto impatient = startClient();
    ASSERT_TRUE(WaitFor([&] { return impatient->connected(); }));
    bus.freeze();
    const auto start = std::chrono::steady_clock::now();
    expectNeutralAnswers(*impatient);
    impatient->checkEncryptionStatus("/e");
    impatient->sendLogMessage("text", "Info");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s) << "half a second and what the machine needs";
    bus.thaw();
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionDBusTest, AnInterruptedClientComesBack) {
    auto server = startServer();
    const auto client = startPatientClient();
    server->stop();
    ASSERT_TRUE(WaitFor([&] { return !client->connected(); }));
    EXPECT_THAT(systemLog.lines(), Contains("FinderExtensionXPCClient -- interrupt"));
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionDBusTest, AStoppedClientComesBack) {
    const auto server = startServer();
    const auto client = startPatientClient();
    client->stop();
    ASSERT_TRUE(WaitFor([&] {
        return std::ranges::count(systemLog.lines(), "FinderExtensionXPCClient -- did invalidate") == 1;
    }));
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionDBusTest, AClientSurvivesTheLossOfTheBus) {
    auto server = startServer();
    const auto client = startPatientClient();
    bus.kill();
    ASSERT_TRUE(WaitFor([&] { return !client->connected(); }));
    bus.start();
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionDBusTest, EndsWhileAnswersAreOnTheirWayHarmNobody) {
    for (int i = 0; i < 1000; ++i) {
        scanner->many.push_back({{"Name", "classifier " + std::to_string(i)}, {"MatchCount", "1"}});
    }
    std::atomic<bool> ended{false};
    std::atomic<int> answered{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, client = startClient()] {
            while (!ended) {
                const auto records = client->getFileFilters("/many");
                answered += records.empty() ? 0 : 1;
                wrong += records.empty() || records == scanner->many ? 0 : 1;
            }
        });
    }
    for (int round = 0; round < 10; ++round) {
        auto server = startServer();
        const int before = answered;
        EXPECT_TRUE(WaitFor([&] { return answered > before; })) << round;
        if (round % 3 == 2) {
            bus.kill();
            bus.start();
        } else {
            server->stop();
        }
        const std::weak_ptr<cmn::FinderExtensionObjCXPCServer> weakServer = server;
        server.reset();
        EXPECT_TRUE(WaitFor([&] { return weakServer.expired(); })) << round;
    }
    const auto server = startServer();
    transport->stop();
    ended = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(FinderExtensionDBusTest, AClientThatLeavesIsNoticed) {
    const auto server = startServer();
    startPatientClient().reset();
    EXPECT_TRUE(WaitFor([&] { return log.count("Not overridden") == 1; }));
}

TEST_F(FinderExtensionDBusTest, AClientThatIsLetGoWithAnOpenCheckIsGone) {
    RawPeer service(bus.address(), goodService());
    ASSERT_TRUE(service.own(kService));
    auto client = startPatientClient();
    client->checkEncryptionStatus("/e");
    ASSERT_TRUE(WaitFor([&] { return received.all("CheckEncryptionStatus").size() == 1; }));
    const std::weak_ptr<cmn::FinderExtensionXPCClient> weakClient = client;
    client.reset();
    EXPECT_TRUE(WaitFor([&] { return weakClient.expired(); }));
}

}  // namespace
