#include <gtest/gtest.h>

#include <future>

#include "FinderExtensionBusFixture.h"

// The contract of the Finder extension service with other programs.
namespace {

using namespace std::chrono_literals;
using fake::RawPeer;
using fake::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

class FinderExtensionContractTest : public FinderExtensionBusFixture {};

TEST_F(FinderExtensionContractTest, TheClientSpeaksTheContract) {
    const auto service = startService(goodService());
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
        EXPECT_EQ(calls[0].path, kFinderPath);
        EXPECT_EQ(calls[0].interface, kFinder);
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

TEST_F(FinderExtensionContractTest, TheServerSpeaksTheContract) {
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
    const QDBusMessage xml = peer.call(
        RawPeer::message(kFinder, kFinderPath, "org.freedesktop.DBus.Introspectable", "Introspect"));
    EXPECT_THAT(xml.arguments()[0].toString().toStdString(),
                testing::AllOf(HasSubstr("GetScanResult"), HasSubstr("aa{ss}"), HasSubstr("a{sb}"),
                               HasSubstr("NoReply")));
}

TEST_F(FinderExtensionContractTest, TheServerRefusesOtherTypes) {
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

TEST_F(FinderExtensionContractTest, TheServerCallsTheDelegateAsTheContractSays) {
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
    EXPECT_EQ(calls[0].interface, kFinderDelegate);
    EXPECT_EQ(calls[0].signature, "b");
    EXPECT_EQ(calls[0].arguments, QVariantList{true});
    EXPECT_EQ(calls[1].arguments, QVariantList{false});
    EXPECT_EQ(calls[2].path, "/other/delegate");
    EXPECT_EQ(calls[2].arguments, QVariantList{false}) << "an empty path is not encrypted";
}

TEST_F(FinderExtensionContractTest, DelegatesThatNeverAnswerHoldUpNobody) {
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

TEST_F(FinderExtensionContractTest, TheClientsDelegateSpeaksTheContract) {
    const auto service = startService(goodService());
    const auto client = startPatientClient();
    std::promise<bool> answered;
    client->setCompleteblock([&](bool encrypted) { answered.set_value(encrypted); });
    client->checkEncryptionStatus("/e");
    ASSERT_TRUE(WaitFor([&] { return received.all("CheckEncryptionStatus").size() == 1; }));
    const auto asked = received.all("CheckEncryptionStatus")[0];
    const std::string path = asked.arguments[1].value<QDBusObjectPath>().path().toStdString();
    EXPECT_NE(path, "/");
    const auto tell = [&](const QVariantList& arguments) {
        return service->call(
            RawPeer::message(asked.sender, path, kFinderDelegate, "DidCheckEncryptionStatus", arguments));
    };
    EXPECT_EQ(tell({QStringLiteral("yes")}).errorName(), "org.freedesktop.DBus.Error.InvalidArgs");
    const QDBusMessage answer = tell({true});
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(answer.signature(), "");
    EXPECT_TRUE(answered.get_future().get());
    client->setCompleteblock(nullptr);
    EXPECT_EQ(tell({true}).type(), QDBusMessage::ReplyMessage) << "without a block it is no error either";
}

TEST_F(FinderExtensionContractTest, TheClientsDelegateListensToTheServiceOnly) {
    const auto service = startService(goodService());
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
                                         kFinderDelegate, "DidCheckEncryptionStatus", {true}))
                  .errorName(),
              "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(answers, 0);
    client->setCompleteblock(nullptr);
}

}  // namespace
