#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QMap>
#include <algorithm>
#include <future>
#include <stdexcept>
#include <thread>

#include "DBusFixture.h"
#include "support/Gate.h"
#include "support/RawPeer.h"

// The service's end of the messages over D-Bus.
namespace {

using namespace std::chrono_literals;
using fake::RawPeer;
using fake::WaitFor;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class DBusServiceTest : public DBusTest {
 protected:
    static QDBusMessage echo(const std::string& member, const QVariantList& arguments = {}) {
        return RawPeer::message(kEchoService, kEchoPath, kEchoService, member, arguments);
    }
};

class RecordingDelegate : public EchoDelegate {
 public:
    void didCheck(bool result) override { result ? ++yes : ++no; }
    std::atomic<int> yes{0};
    std::atomic<int> no{0};
};

TEST_F(DBusServiceTest, OwnsItsNameWhileItListens) {
    const auto server = startServer();
    RawPeer peer(bus.address());
    EXPECT_TRUE(peer.hasOwner(kEchoService));
    server->stop();
    EXPECT_TRUE(WaitFor([&] { return !peer.hasOwner(kEchoService); }));
}

TEST_F(DBusServiceTest, MayBeStoppedAtAnyMomentOfItsStart) {
    for (int i = 0; i < 60; ++i) {
        const auto server = std::make_shared<EchoServer>(transport, kEchoService);
        server->start();
        std::this_thread::sleep_for(i * 50us);
        server->stop();
    }
    // That one of those before listened may be told only now, so who answers is what counts.
    const auto server = std::make_shared<EchoServer>(transport, kEchoService);
    server->start();
    EXPECT_TRUE(WaitFor([&] { return answers(*resumeClient().connection); }));
}

TEST_F(DBusServiceTest, AClientMayEndAtAnyMomentOfItsStart) {
    const auto server = startServer();
    constexpr int kClients = 60;
    std::vector<Wired> ended;  // a connection that is gone tells nobody
    for (int i = 0; i < kClients; ++i) {
        const Wired& client = ended.emplace_back(resumeClient());
        client.echo->note("hello");
        std::this_thread::sleep_for(i * 50us);
        client.connection->invalidate();
    }
    EXPECT_TRUE(WaitFor([&] {
        return std::all_of(ended.begin(), ended.end(),
                           [](const Wired& one) { return one.events.invalidations == 1; });
    }));
    EXPECT_TRUE(answers(*connect().connection));
}

TEST_F(DBusServiceTest, ANameThatIsTakenIsReportedAndLogged) {
    const auto first = startServer();
    const auto second = std::make_shared<EchoServer>(transport, kEchoService);
    second->start();
    ASSERT_TRUE(WaitFor([&] { return listenerEvents.count() == 2; }));
    EXPECT_EQ(listenerEvents.all()[1].state, cmn::DBusListenerState::failed);
    EXPECT_EQ(listenerEvents.all()[1].machServiceName, kEchoService);
    EXPECT_THAT(log.linesWith("Cannot listen"),
                ElementsAre(AllOf(
                    testing::StartsWith("[ERROR]"),
                    EndsWith("Cannot listen as com.example.Echo -- the name is already taken by another "
                             "process"))));
    first->stop();
    RawPeer peer(bus.address());
    EXPECT_TRUE(WaitFor([&] { return !peer.hasOwner(kEchoService); })) << "the second does not wait in line";
}

TEST_F(DBusServiceTest, AnAbsentBusIsReportedAndLogged) {
    cmn::DBusXPCOptions nowhere = options();
    nowhere.systemBusAddress = "unix:path=/nonexistent/bus";
    useTransport(nowhere);
    const auto server = std::make_shared<EchoServer>(transport, kEchoService);
    server->start();
    ASSERT_TRUE(WaitFor([&] { return listenerEvents.count() == 1; }));
    EXPECT_EQ(listenerEvents.all()[0].state, cmn::DBusListenerState::failed);
    EXPECT_EQ(log.count("Cannot listen as com.example.Echo -- unix:path=/nonexistent/bus"), 1U);
}

TEST_F(DBusServiceTest, OnABusThatComesBackItsNameIsClaimedAgain) {
    const auto server = startServer();
    bus.kill();
    bus.start();
    ASSERT_TRUE(WaitFor([&] { return listenerEvents.count() == 3; }));
    EXPECT_EQ(listenerEvents.all()[1].state, cmn::DBusListenerState::lost);
    EXPECT_EQ(listenerEvents.all()[2].state, cmn::DBusListenerState::listening);
    RawPeer peer(bus.address());
    EXPECT_EQ(peer.call(echo("Version")).type(), QDBusMessage::ReplyMessage);
}

TEST_F(DBusServiceTest, AnInvalidNameIsReported) {
    const auto server = std::make_shared<EchoServer>(transport, "no bus name!");
    server->start();
    ASSERT_TRUE(WaitFor([&] { return listenerEvents.count() == 1; }));
    EXPECT_EQ(listenerEvents.all()[0].state, cmn::DBusListenerState::failed);
}

TEST_F(DBusServiceTest, SeesOneNewConnectionPerPeerAtItsFirstMessage) {
    const auto server = startServer();
    const RawPeer idle(bus.address());
    RawPeer peer(bus.address());
    EXPECT_EQ(server->accepted, 0);
    for (int i = 0; i < 3; ++i) {
        peer.call(echo("Version"));
    }
    EXPECT_EQ(server->accepted, 1);
    RawPeer other(bus.address());
    other.call(echo("Version"));
    EXPECT_EQ(server->accepted, 2);
}

TEST_F(DBusServiceTest, SeesAPeerLeaveTheBus) {
    const auto server = startServer();
    {
        RawPeer peer(bus.address());
        peer.call(echo("Version"));
        EXPECT_EQ(server->invalidated, 0);
    }
    EXPECT_TRUE(WaitFor([&] { return server->invalidated == 1; }));
}

TEST_F(DBusServiceTest, SeesAPeerLeaveAlsoWhileItsMessagesWait) {
    fake::Gate gate;
    const auto server =
        startServer([&](EchoServer& to) { to.onNote = [&](const std::string&) { gate.pass(); }; });
    RawPeer other(bus.address());
    {
        RawPeer peer(bus.address());
        peer.call(echo("Version"));  // now it is known who it is
        peer.send(echo("Note", {QStringLiteral("slow")}));
        peer.call(
            RawPeer::message("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId"));  // it is sent
    }
    ASSERT_TRUE(WaitFor([&] { return server->accepted == 1; }));
    other.call(echo("Version"));  // behind the news that the peer is gone
    EXPECT_EQ(server->invalidated, 0);
    gate.open();
    EXPECT_TRUE(WaitFor([&] { return server->invalidated == 1; }));
    EXPECT_THAT(server->notes(), ElementsAre("slow"));
}

TEST_F(DBusServiceTest, TheLastMessagesOfAPeerThatLeavesAreDelivered) {
    const auto server = startServer();
    {
        const RawPeer peer(bus.address());
        peer.call(echo("Version"));  // now it is known who it is
        for (int i = 0; i < 200; ++i) {
            peer.send(echo("Note", {QString::number(i)}));
        }
        peer.call(RawPeer::message("org.freedesktop.DBus", "/", "org.freedesktop.DBus",
                                   "GetId"));  // all are with the bus
    }
    ASSERT_TRUE(WaitFor([&] { return server->invalidated == 1; }));
    EXPECT_THAT(server->notes(), SizeIs(200));
    EXPECT_EQ(server->notes().back(), "199");
}

TEST_F(DBusServiceTest, APeerThatIsGoneBeforeItsMessageIsReadLeavesNothingBehind) {
    const auto server = startServer();
    for (int i = 0; i < 50; ++i) {
        const RawPeer peer(bus.address());
        peer.send(echo("Note", {QStringLiteral("bye")}));
    }
    EXPECT_TRUE(
        WaitFor([&] { return server->invalidated == server->accepted && server->notes().size() <= 50; }));
    RawPeer peer(bus.address());
    peer.call(echo("Version"));
    EXPECT_TRUE(WaitFor([&] { return server->invalidated == server->accepted - 1; }));
}

TEST_F(DBusServiceTest, ARejectedPeerGetsAnErrorForEachMessage) {
    const auto server = startServer();
    server->accepts = false;
    RawPeer peer(bus.address());
    for (int i = 0; i < 2; ++i) {
        const QDBusMessage answer = peer.call(echo("Version"));
        EXPECT_EQ(answer.errorName(), "org.freedesktop.DBus.Error.AccessDenied");
    }
    peer.call(echo("Note", {QStringLiteral("x")}));
    EXPECT_THAT(server->notes(), IsEmpty());
    EXPECT_EQ(log.count("was not accepted"), 1U) << "one line a minute for one peer";
}

TEST_F(DBusServiceTest, BadMessagesGetAnErrorAndHarmNobody) {
    qDBusRegisterMetaType<QMap<QString, QString>>();
    const auto server = startServer();
    RawPeer peer(bus.address());
    const QString text = QStringLiteral("x");
    const auto variant = QVariant::fromValue(QDBusVariant(text));
    struct Bad {
        QDBusMessage message;
        const char* error;
    };
    const auto at = [](const char* path, const char* interface, const char* member) {
        return RawPeer::message(kEchoService, path, interface, member);
    };
    const std::vector<Bad> messages = {
        {echo("Number"), "InvalidArgs"},
        {echo("Number", {5}), "InvalidArgs"},
        {echo("Number", {text, text}), "InvalidArgs"},
        {echo("Number", {variant}), "InvalidArgs"},
        {echo("Number", {2.5}), "InvalidArgs"},
        {echo("Number", {QVariant::fromValue(qlonglong{1})}), "InvalidArgs"},
        {echo("Number", {QByteArray("bytes")}), "InvalidArgs"},
        {echo("Number", {QVariant::fromValue(QDBusUnixFileDescriptor(0))}), "NotSupported"},
        {echo("Number", {QVariant::fromValue(QMap<QString, QString>{{text, text}})}), "InvalidArgs"},
        {echo("Check", {text, text}), "InvalidArgs"},  // a string where an object path belongs
        {echo("Check", {text}), "InvalidArgs"},
        {echo("Note", {text, QStringList{text}}), "InvalidArgs"},
        {echo("Version", {text}), "InvalidArgs"},
        {echo("version"), "UnknownMethod"},
        {echo("Missing"), "UnknownMethod"},
        {at(kEchoPath, "com.example.Other", "Version"), "UnknownInterface"},
        {at("/", kEchoService, "Version"), "UnknownObject"},
        {at("/com/example", kEchoService, "Version"), "UnknownObject"},
        {at("/com/example/Echo/below", kEchoService, "Version"), "UnknownObject"},
        {at(kEchoPath, "org.freedesktop.DBus.Properties", "GetAll"), "UnknownInterface"},
        {at("/elsewhere", "org.freedesktop.DBus.Introspectable", "Introspect"), "UnknownObject"},
    };
    for (const Bad& bad : messages) {
        EXPECT_EQ(peer.call(bad.message).errorName(),
                  QStringLiteral("org.freedesktop.DBus.Error.") + bad.error)
            << bad.message.member().toStdString() << "(" << bad.message.signature().toStdString() << ")";
    }
    EXPECT_EQ(log.count(" refused: "), 1U) << "one line a minute for one peer";
    EXPECT_THAT(server->notes(), IsEmpty());
    EXPECT_EQ(peer.call(echo("Version")).arguments(), QVariantList{QStringLiteral("1.0")});
}

TEST_F(DBusServiceTest, ABadMessageThatWantsNoAnswerIsOnlyLogged) {
    const auto server = startServer();
    RawPeer peer(bus.address());
    RawPeer other(bus.address());
    peer.send(echo("Number", {5}));
    other.send(echo("Missing"));
    EXPECT_EQ(peer.call(echo("Version")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(other.call(echo("Version")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(log.count("Number(i) of"), 1U);
    EXPECT_EQ(log.count("Missing() of"), 1U);
}

TEST_F(DBusServiceTest, AMessageWithoutInterfaceReachesTheMethod) {
    const auto server = startServer();
    RawPeer peer(bus.address());
    EXPECT_EQ(peer.call(RawPeer::message(kEchoService, kEchoPath, "", "Version")).arguments(),
              QVariantList{QStringLiteral("1.0")});
}

TEST_F(DBusServiceTest, ATextIsDeliveredUpToWhatItsMethodTakes) {
    const auto server = startServer();
    RawPeer peer(bus.address());
    const QString longest(1024 * 1024, QLatin1Char('x'));
    EXPECT_EQ(peer.call(echo("Number", {longest})).arguments(), QVariantList{1024 * 1024});
    EXPECT_EQ(peer.call(echo("Number", {longest + QLatin1Char('x')})).errorName(),
              "org.freedesktop.DBus.Error.LimitsExceeded");
    RawPeer other(bus.address());
    const QString note(static_cast<qsizetype>(kMostNoteBytes), QLatin1Char('x'));
    EXPECT_EQ(other.call(echo("Note", {note})).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(other.call(echo("Note", {note + QLatin1Char('x')})).errorName(),
              "org.freedesktop.DBus.Error.LimitsExceeded");
    EXPECT_EQ(log.count(" refused: "), 2U);
}

TEST_F(DBusServiceTest, AnExceptionInTheServiceIsAnErrorForTheCaller) {
    const auto server = startServer([&](EchoServer& to) {
        to.onNumber = [](const std::string&, const auto&) { throw std::runtime_error("out of numbers"); };
        to.onNote = [](const std::string&) { throw std::runtime_error("out of paper"); };
    });
    RawPeer peer(bus.address());
    EXPECT_EQ(peer.call(echo("Number", {QStringLiteral("x")})).errorMessage(), "out of numbers");
    peer.send(echo("Note", {QStringLiteral("x")}));
    EXPECT_EQ(peer.call(echo("Version")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(log.count("out of paper"), 1U);
}

TEST_F(DBusServiceTest, APeerThatFloodsIsRefusedBeyondTenThousandWaitingMessages) {
    fake::Gate gate;
    const auto server =
        startServer([&](EchoServer& to) { to.onNote = [&](const std::string&) { gate.pass(); }; });
    SetLogLevel(LogLevel::Error);
    RawPeer flood(bus.address());
    for (int i = 0; i < 10'050; ++i) {
        flood.send(echo("Note", {QStringLiteral("x")}));
    }
    EXPECT_EQ(flood.call(echo("Version")).errorName(), "org.freedesktop.DBus.Error.LimitsExceeded");
    RawPeer other(bus.address());
    EXPECT_EQ(other.call(echo("Version")).type(), QDBusMessage::ReplyMessage);
    gate.open();
    EXPECT_TRUE(WaitFor([&] { return flood.call(echo("Version")).type() == QDBusMessage::ReplyMessage; }));
    EXPECT_GE(server->notes().size(), 9'000U);
    EXPECT_LT(server->notes().size(), 10'050U);
}

TEST_F(DBusServiceTest, DescribesItselfToWhoAsks) {
    const auto server = startServer();
    RawPeer peer(bus.address());
    const auto describe = [&](const char* path) {
        return peer
            .call(RawPeer::message(kEchoService, path, "org.freedesktop.DBus.Introspectable", "Introspect"))
            .arguments()
            .value(0)
            .toString()
            .toStdString();
    };
    EXPECT_THAT(
        describe(kEchoPath),
        AllOf(HasSubstr("<interface name=\"com.example.Echo\">"), HasSubstr("<method name=\"Records\">"),
              HasSubstr("<arg name=\"text\" type=\"s\" direction=\"in\"/>"),
              HasSubstr("<arg name=\"delegate\" type=\"o\" direction=\"in\"/>"),
              HasSubstr("<arg type=\"aa{ss}\" direction=\"out\"/>"), HasSubstr("Method.NoReply"),
              HasSubstr("org.freedesktop.DBus.Introspectable"), HasSubstr("org.freedesktop.DBus.Peer")));
    EXPECT_THAT(describe("/"),
                AllOf(HasSubstr("<node name=\"com\"/>"), testing::Not(HasSubstr("<interface"))));
    EXPECT_THAT(describe("/com"), HasSubstr("<node name=\"example\"/>"));
    EXPECT_THAT(describe("/com/example"), HasSubstr("<node name=\"Echo\"/>"));
}

TEST_F(DBusServiceTest, AnswersPingAndTheMachineId) {
    const auto server = startServer();
    RawPeer peer(bus.address());
    const auto ask = [&](const char* member) {
        return peer.call(RawPeer::message(kEchoService, kEchoPath, "org.freedesktop.DBus.Peer", member))
            .type();
    };
    EXPECT_EQ(ask("Ping"), QDBusMessage::ReplyMessage);
    EXPECT_EQ(ask("GetMachineId"), QDBusMessage::ReplyMessage);
}

TEST_F(DBusServiceTest, ManyRequestsWithOneDelegateAreAllAnswered) {
    const auto server = startServer();
    const Wired client = connect();
    const auto delegate = std::make_shared<RecordingDelegate>();
    for (int i = 0; i < 500; ++i) {
        client.echo->check("file", delegate);
    }
    EXPECT_TRUE(WaitFor([&] { return delegate->yes == 500; }));
    EXPECT_EQ(client.events.errors, 0);
}

TEST_F(DBusServiceTest, TheSameDelegateHasTheSamePathAndAnotherOneAnother) {
    const fake::Recorder<std::string> received;
    RawPeer daemon(bus.address(), [&](const QDBusMessage& message, const QDBusConnection&) {
        received.add(message.arguments().at(1).value<QDBusObjectPath>().path().toStdString());
    });
    ASSERT_TRUE(daemon.own(kEchoService));
    const Wired client = resumeClient();
    const auto first = std::make_shared<RecordingDelegate>();
    const auto second = std::make_shared<RecordingDelegate>();
    client.echo->check("a", first);
    client.echo->check("b", second);
    client.echo->check("c", first);
    client.echo->check("d", nullptr);
    ASSERT_TRUE(WaitFor([&] { return received.count() == 4; }));
    const std::vector<std::string> paths = received.all();
    EXPECT_EQ(paths[0], "/com/example/EchoDelegate/1");
    EXPECT_EQ(paths[1], "/com/example/EchoDelegate/2");
    EXPECT_EQ(paths[2], paths[0]);
    EXPECT_EQ(paths[3], "/") << "stands for none";
}

TEST_F(DBusServiceTest, OnlyTheOwnerOfTheServiceMayCallAClientsObjects) {
    std::string path;
    std::string name;
    std::atomic<bool> known{false};
    RawPeer daemon(bus.address(), [&](const QDBusMessage& message, const QDBusConnection&) {
        path = message.arguments().at(1).value<QDBusObjectPath>().path().toStdString();
        name = message.service().toStdString();
        known = true;
    });
    ASSERT_TRUE(daemon.own(kEchoService));
    const Wired client = resumeClient();
    const auto delegate = std::make_shared<RecordingDelegate>();
    client.echo->check("a", delegate);
    ASSERT_TRUE(WaitFor([&] { return known.load(); }));
    const auto call = RawPeer::message(name, path, "com.example.EchoDelegate", "DidCheck", {true});
    const RawPeer stranger(bus.address());
    EXPECT_EQ(stranger.call(call).errorName(), "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(delegate->yes, 0);
    EXPECT_EQ(daemon.call(call).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(delegate->yes, 1);
    EXPECT_EQ(log.count("Only the owner of com.example.Echo may call"), 1U);
}

TEST_F(DBusServiceTest, AForgedSignalAboutNamesIsNotBelieved) {
    const auto server = startServer();
    const Wired client = connect();
    const RawPeer liar(bus.address());
    for (int i = 0; i < 8; ++i) {  // the unique names of both ends are among these
        QDBusMessage signal = QDBusMessage::createTargetedSignal(
            QStringLiteral(":1.%1").arg(i), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"));
        signal.setArguments({QString::fromLatin1(kEchoService), QStringLiteral(":1.0"), QString()});
        liar.send(signal);
        signal.setArguments({QStringLiteral(":1.1"), QStringLiteral(":1.1"), QString()});
        liar.send(signal);
    }
    liar.call(
        RawPeer::message("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId"));  // all are sent
    EXPECT_TRUE(answers(*client.connection));
    EXPECT_EQ(client.events.interruptions, 0);
    EXPECT_EQ(server->invalidated, 0);
    EXPECT_EQ(server->accepted, 1);
}

}  // namespace
