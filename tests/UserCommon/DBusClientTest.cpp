#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <filesystem>
#include <future>
#include <numeric>
#include <thread>

#include "DBusFixture.h"
#include "support/MuteSocket.h"
#include "support/RawPeer.h"

// The client's end of the messages over D-Bus.
namespace {

using namespace std::chrono_literals;
using fake::MuteSocket;
using fake::RawPeer;
using fake::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

class DBusClientTest : public DBusTest {
 protected:
    // A connection to a bus at another address, with short deadlines.
    Wired connectElsewhere(const std::string& address, std::chrono::milliseconds deadline = 200ms) {
        cmn::DBusXPCOptions other;
        other.systemBusAddress = address;
        other.busDeadline = deadline;
        useTransport(other);
        return resumeClient();
    }
};

TEST_F(DBusClientTest, CallsAServiceAndGetsEveryTypeBack) {
    const auto server = startServer();
    const Wired client = connect();
    std::atomic<int> replies{0};
    EchoProtocol::Records records;
    std::vector<std::string> names;
    EchoProtocol::Flags flags;
    std::int32_t number = 0;
    client.echo->records("file \xe2\x82\xac", [&](const auto& value) { records = value, ++replies; });
    client.echo->names([&](const auto& value) { names = value, ++replies; });
    client.echo->flags([&](const auto& value) { flags = value, ++replies; });
    client.echo->number("four", [&](std::int32_t value) { number = value, ++replies; });
    ASSERT_TRUE(WaitFor([&] { return replies == 4; })) << client.events.error();
    EXPECT_EQ(records, (EchoProtocol::Records{{{"Name", "file \xe2\x82\xac"}, {"costUsd", "12"}},
                                              {},
                                              {{"\xc3\xa4", "\xf0\x9f\xa6\x8a"}}}));
    EXPECT_THAT(names, ElementsAre("a", "", "\xc3\xa4"));
    EXPECT_EQ(flags, (EchoProtocol::Flags{{"no", false}, {"yes", true}}));
    EXPECT_EQ(number, 4);
    EXPECT_EQ(client.events.errors, 0);
}

TEST_F(DBusClientTest, MoreCallsThanABusAllowsAtOnceAreAnsweredInTheirOrder) {
    const auto server = startServer();
    server->onNumber = [](const std::string& text, const auto& reply) { reply(std::stoi(text)); };
    const Wired client = connect();
    constexpr std::int32_t kCount = 2000;
    const fake::Recorder<std::int32_t> numbers;
    for (std::int32_t i = 0; i < kCount; ++i) {
        client.echo->number(std::to_string(i), numbers);
    }
    client.echo->note("after them");
    ASSERT_TRUE(WaitFor([&] { return numbers.count() == kCount; }));
    std::vector<std::int32_t> expected(kCount);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(numbers.all(), expected);
    EXPECT_TRUE(WaitFor([&] { return server->notes() == std::vector<std::string>{"after them"}; }));
    EXPECT_EQ(client.events.errors, 0) << client.events.error();
}

TEST_F(DBusClientTest, CallsThatPileUpAtAServiceThatHangsFailInTheEnd) {
    RawPeer service(bus.address(), [](const QDBusMessage&, const QDBusConnection&) {});  // never answers
    ASSERT_TRUE(service.own("com.example.Echo"));
    const Wired client = resumeClient();
    for (int i = 0; i < 10'500; ++i) {
        client.echo->version([](const std::string&) {});
    }
    EXPECT_TRUE(WaitFor([&] { return client.events.errors >= 400; })) << "more than so many do not wait";
    EXPECT_THAT(client.events.error(), HasSubstr("Too many messages are waiting"));
    EXPECT_LE(client.events.errors, 500);
    service.release("com.example.Echo");
    EXPECT_TRUE(WaitFor([&] { return client.events.errors == 10'500; })) << "the others fail when it leaves";
}

TEST_F(DBusClientTest, AConnectionThatIsLetGoWithManyOpenCallsLeavesTheBus) {
    const fake::Recorder<std::string> clients;
    RawPeer service(bus.address(), [&](const QDBusMessage& call, const QDBusConnection&) {
        clients.add(call.service().toStdString());  // and never answers
    });
    ASSERT_TRUE(service.own("com.example.Echo"));
    Wired client = resumeClient();
    for (int i = 0; i < 300; ++i) {
        client.echo->version([echo = client.echo](const std::string&) {});
    }
    ASSERT_TRUE(WaitFor([&] { return clients.count() > 0; }));
    client.echo.reset();
    client.connection.reset();
    EXPECT_TRUE(WaitFor([&] { return !service.hasOwner(clients.last()); }));
}

TEST_F(DBusClientTest, AMessageToAnAbsentServiceFailsWithWordsThatHelp) {
    const Wired client = resumeClient();
    client.echo->note("lost");
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1; }));
    EXPECT_THAT(client.events.suggestion(), HasSubstr("com.example.Echo"));
    EXPECT_THAT(client.events.suggestion(), HasSubstr("nobody owns the name"));
}

TEST_F(DBusClientTest, ACallFailsWhenTheServiceGivesUpItsNameAndKeepsSilent) {
    std::atomic<int> asked{0};
    RawPeer daemon(bus.address(), [&](const QDBusMessage&, const QDBusConnection&) { ++asked; });
    ASSERT_TRUE(daemon.own(kEchoService));
    const Wired client = resumeClient();
    client.echo->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return asked == 1; }));
    ASSERT_TRUE(daemon.release(kEchoService));
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1 && client.events.interruptions == 1; }));
    EXPECT_THAT(client.events.suggestion(), HasSubstr("went away"));
    ASSERT_TRUE(daemon.own(kEchoService));
    ASSERT_TRUE(WaitFor([&] {
        client.echo->note("are you back?");
        return asked > 1;
    }));
    EXPECT_EQ(client.events.invalidations, 0);
}

TEST_F(DBusClientTest, AServiceThatForgetsToAnswerMakesTheCallFail) {
    const auto server =
        startServer([&](EchoServer& to) { to.onNumber = [](const std::string&, const auto&) {}; });
    const Wired client = connect();
    client.echo->number("x", [](std::int32_t) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1; }));
    EXPECT_THAT(client.events.error(), HasSubstr("not answered"));
}

TEST_F(DBusClientTest, ACallThatIsNeverAnsweredFailsAtTheDeadline) {
    RawPeer daemon(bus.address(), [](const QDBusMessage&, const QDBusConnection&) {});
    ASSERT_TRUE(daemon.own(kEchoService));
    cmn::DBusXPCOptions impatient = options();
    impatient.replyDeadline = 300ms;
    useTransport(impatient);
    const Wired client = resumeClient();
    const auto start = Clock::now();
    client.echo->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1; }));
    EXPECT_GE(Clock::now() - start, 270ms);  // timers are coarse
    EXPECT_EQ(client.events.invalidations + client.events.interruptions, 0);
}

TEST_F(DBusClientTest, AnswersOfTheWrongTypeAreErrors) {
    const std::vector<QVariantList> wrongAnswers = {
        {},
        {5},
        {QStringLiteral("1.0"), 5},
        {QVariant::fromValue(QDBusVariant(QStringLiteral("1.0")))},
        {2.5},
        {QVariant::fromValue(QDBusObjectPath(QStringLiteral("/a")))},
        {QStringList{QStringLiteral("1.0")}}};
    int asked = 0;
    RawPeer daemon(bus.address(), [&](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(message.createReply(wrongAnswers.at(static_cast<std::size_t>(asked++))));
    });
    ASSERT_TRUE(daemon.own(kEchoService));
    const Wired client = resumeClient();
    const int count = static_cast<int>(std::size(wrongAnswers));
    for (int i = 0; i < count; ++i) {
        client.echo->version([](const std::string&) { ADD_FAILURE(); });
    }
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == count; })) << client.events.errors;
    EXPECT_THAT(client.events.error(), HasSubstr("\"as\""));
}

TEST_F(DBusClientTest, AnErrorAnswerIsHandedOn) {
    RawPeer daemon(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(
            message.createErrorReply(QStringLiteral("com.example.Broken"), QStringLiteral("so sorry")));
    });
    ASSERT_TRUE(daemon.own(kEchoService));
    const Wired client = resumeClient();
    client.echo->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1; }));
    EXPECT_EQ(client.events.error(), "com.example.Broken: so sorry");
    EXPECT_THAT(client.events.suggestion(), HasSubstr("so sorry"));
}

TEST_F(DBusClientTest, AHugeAnswerIsAnAnswerWhereOneIsExpectedAndAnErrorElsewhere) {
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qDBusRegisterMetaType<QList<QMap<QString, QString>>>();
    const QString huge(8 * 1024 * 1024, QLatin1Char('x'));
    RawPeer daemon(bus.address(), [&](const QDBusMessage& message, const QDBusConnection& connection) {
        const QList<QMap<QString, QString>> records{{{QStringLiteral("Name"), huge}}};
        connection.send(message.createReply(
            message.member() == QLatin1String("Records") ? QVariant::fromValue(records) : QVariant(huge)));
    });
    ASSERT_TRUE(daemon.own(kEchoService));
    const Wired client = resumeClient();
    std::atomic<std::size_t> size{0};
    client.echo->records("", [&](const auto& records) { size = records[0].at("Name").size(); });
    ASSERT_TRUE(WaitFor([&] { return size != 0; })) << client.events.error();
    EXPECT_EQ(size, 8U * 1024 * 1024);
    client.echo->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1; }));
    EXPECT_THAT(client.events.error(), HasSubstr("LimitsExceeded: It is too large to be read"));
}

TEST_F(DBusClientTest, AMessageThatIsTooLargeFailsAndTheConnectionLives) {
    const auto server = startServer();
    const Wired client = connect();
    const std::string huge(17 * 1024 * 1024, 'x');
    client.echo->note(huge);
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 1; }));
    client.echo->number(huge, [](std::int32_t) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return client.events.errors == 2; }));
    EXPECT_TRUE(answers(*client.connection));
    EXPECT_EQ(client.events.invalidations + client.events.interruptions, 0);
}

TEST_F(DBusClientTest, TextThatIsNoUTF8IsRepairedAndTextEndsAtANul) {
    const auto server = startServer();
    const Wired client = connect();
    client.echo->note(
        "a\xff\xfe"
        "b\xed\xa0\x80");
    client.echo->note(std::string("cut\0off", 7));
    ASSERT_TRUE(WaitFor([&] { return server->notes().size() == 2; })) << client.events.error();
    EXPECT_THAT(server->notes()[0], testing::StartsWith("a\xef\xbf\xbd"));
    EXPECT_EQ(server->notes()[1], "cut");
    EXPECT_TRUE(answers(*client.connection));
}

TEST_F(DBusClientTest, AMessageGoesToTheOwnerThatTheConnectionKnows) {
    // The connection is not told of another one: its loop is busy.
    std::atomic<int> first{0};
    std::atomic<int> second{0};
    const auto counting = [](std::atomic<int>& calls) {
        return [&calls](const QDBusMessage& message, const QDBusConnection& connection) {
            ++calls;
            connection.send(message.createReply(QStringLiteral("1.0")));
        };
    };
    RawPeer known(bus.address(), counting(first));
    RawPeer unknown(bus.address(), counting(second));
    ASSERT_TRUE(known.own(kEchoService));
    const Wired client = connect();
    std::promise<void> busy;
    std::promise<void> goOn;
    dispatch->loop()->post([&busy, going = goOn.get_future().share()] {
        busy.set_value();
        going.wait();
    });
    busy.get_future().wait();
    ASSERT_TRUE(known.release(kEchoService) && unknown.own(kEchoService));
    const int before = first;
    client.echo->version(nullptr);
    EXPECT_TRUE(WaitFor([&] { return first + second > before; }));
    EXPECT_EQ(second, 0);
    goOn.set_value();
    EXPECT_TRUE(WaitFor([&] { return client.events.interruptions == 1; }));
    EXPECT_TRUE(answers(*client.connection));
    EXPECT_GT(second, 0);
}

TEST_F(DBusClientTest, TheConnectionsOfATransportThatEndsAreInvalidated) {
    const auto server = startServer();
    auto other = std::make_shared<cmn::DBusXPCTransport>(dispatch, options());
    const Wired client = wire(*other);
    client.connection->resume();
    ASSERT_TRUE(answers(*client.connection));
    other.reset();
    client.echo->note("nobody hears this");
    client.connection->invalidate();
    client.echo->note("nor this");
    EXPECT_TRUE(WaitFor([&] { return client.events.invalidations == 1 && server->invalidated == 1; }));
    EXPECT_THAT(server->notes(), testing::IsEmpty());
}

TEST_F(DBusClientTest, ALostBusInvalidatesAndFailsWhatWaits) {
    const auto server = startServer([&](EchoServer& to) {
        to.onNumber = [](const std::string&, auto reply) {
            std::thread([reply] { std::this_thread::sleep_for(500ms); }).detach();  // holds the reply
        };
    });
    const Wired client = connect();
    client.echo->number("x", [](std::int32_t) { ADD_FAILURE(); });
    ASSERT_TRUE(answers(*client.connection));
    bus.kill();
    ASSERT_TRUE(WaitFor([&] { return client.events.invalidations == 1 && client.events.errors == 1; }));
    EXPECT_EQ(client.events.interruptions, 0);
    ASSERT_TRUE(WaitFor([&] { return listenerEvents.count() == 2; }));
    EXPECT_EQ(listenerEvents.all()[1].state, cmn::DBusListenerState::lost);
}

TEST_F(DBusClientTest, AnAbsentBusInvalidates) {
    Wired client = connectElsewhere("unix:path=/nonexistent/bus");
    client.echo->note("lost");
    ASSERT_TRUE(WaitFor([&] { return client.events.invalidations == 1 && client.events.errors == 1; }));
    EXPECT_THAT(client.events.suggestion(), HasSubstr("/nonexistent/bus"));
}

TEST_F(DBusClientTest, ARefusingSocketInvalidates) {
    fake::TemporaryFolder folder;
    { const MuteSocket closed(folder / "bus"); }
    Wired client = connectElsewhere("unix:path=" + (folder / "bus").string());
    EXPECT_TRUE(WaitFor([&] { return client.events.invalidations == 1; }));
}

TEST_F(DBusClientTest, AnAddressThatIsNoLocalSocketInvalidates) {
    for (const char* address :
         {"nonsense", "tcp:host=127.0.0.1,port=1", "unix:path=", "unix:path=%zz", ";;"}) {
        Wired client = connectElsewhere(address);
        EXPECT_TRUE(WaitFor([&] { return client.events.invalidations == 1; })) << address;
    }
}

TEST_F(DBusClientTest, ASocketThatAcceptsAndKeepsSilentInvalidatesAfterTheDeadlineAndBlocksNobody) {
    for (const bool authenticates : {false, true}) {
        fake::TemporaryFolder folder;
        const MuteSocket mute(folder / "bus", authenticates);
        const auto start = Clock::now();
        Wired client = connectElsewhere("unix:path=" + (folder / "bus").string(), 1s);
        client.echo->note("lost");
        EXPECT_LT(Clock::now() - start, 900ms) << "nobody waits for the bus";
        ASSERT_TRUE(WaitFor([&] { return client.events.invalidations == 1 && client.events.errors == 1; }));
        EXPECT_GE(Clock::now() - start, 950ms);  // timers are coarse
        EXPECT_LT(Clock::now() - start, 10s);
    }
}

TEST_F(DBusClientTest, ASilentBusBlocksNeitherInvalidateNorTheEndOfAConnection) {
    fake::TemporaryFolder folder;
    const MuteSocket mute(folder / "bus", true);
    Wired client = connectElsewhere("unix:path=" + (folder / "bus").string(), 20s);
    std::this_thread::sleep_for(50ms);  // it waits for the bus now
    const auto start = Clock::now();
    client.connection->invalidate();
    client.connection.reset();
    Wired again = resumeClient();
    again.connection.reset();
    EXPECT_LT(Clock::now() - start, 10s) << "a call waited for the bus";
}

TEST_F(DBusClientTest, ASilentBusHoldsUpNoOtherBus) {
    const auto server = startServer();
    fake::TemporaryFolder folder;
    const MuteSocket mute(folder / "bus", true);
    cmn::DBusXPCOptions mixed = options();
    mixed.sessionBusAddress = "unix:path=" + (folder / "bus").string();
    useTransport(mixed);
    const auto silent = transport->createConnection(kEchoService, cmn::XPCConnectionOptions::none);
    silent->resume();
    const auto start = Clock::now();
    connect();
    EXPECT_LT(Clock::now() - start, 2s) << "the deadline of the silent bus is five seconds";
}

TEST_F(DBusClientTest, AFrozenBusBlocksNobodyAndDeliversAfterItsThaw) {
    const auto server = startServer();
    const Wired client = connect();
    bus.freeze();
    const auto start = Clock::now();
    const std::string text(10'000, 'x');
    for (int i = 0; i < 500; ++i) {  // far more than the socket takes
        client.echo->note(text);
    }
    const Wired second = resumeClient();
    EXPECT_LT(Clock::now() - start, 500ms);
    bus.thaw();
    EXPECT_TRUE(WaitFor([&] { return server->notes().size() == 500; }));
    EXPECT_TRUE(answers(*second.connection));
}

TEST_F(DBusClientTest, AListOfAddressesIsTriedInOrder) {
    const auto server = startServer();
    Wired client = connectElsewhere("tcp:host=x;unix:path=/nonexistent/bus;" + bus.address());
    EXPECT_TRUE(answers(*client.connection));
}

TEST_F(DBusClientTest, TheChoiceOfTheBusFollowsThePrivilege) {
    const auto server = startServer();
    cmn::DBusXPCOptions split = options();
    split.sessionBusAddress = "unix:path=/nonexistent/bus";
    useTransport(split);
    const auto privileged = transport->createConnection(kEchoService, cmn::XPCConnectionOptions::privileged);
    privileged->setRemoteObjectInterface(CreateEchoInterface());
    privileged->resume();
    EXPECT_TRUE(answers(*privileged));
    const auto plain = transport->createConnection(kEchoService, cmn::XPCConnectionOptions::none);
    plain->setRemoteObjectInterface(CreateEchoInterface());
    plain->resume();
    EXPECT_FALSE(answers(*plain));
}

TEST_F(DBusClientTest, AnAbsentServiceIsNotStartedByTheBus) {
    fake::PrivateBus starting(fake::PrivateBus::WithService{kEchoService});
    Wired client = connectElsewhere(starting.address());
    EXPECT_FALSE(answers(*client.connection));
    EXPECT_FALSE(starting.serviceWasStarted());
    // The same bus does start it for who asks for it.
    const RawPeer other(starting.address());
    other.send(fake::RawPeer::message(kEchoService, kEchoPath, kEchoService, "Version"));
    EXPECT_TRUE(WaitFor([&] { return starting.serviceWasStarted(); }));
}

TEST_F(DBusClientTest, TwoHundredConnectionsLeaveNothingBehind) {
    const auto server = startServer();
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    connect();
    ASSERT_TRUE(WaitFor([&] { return server->invalidated == 1; }));
    const auto before = descriptors();
    for (int i = 0; i < 200; ++i) {
        const Wired client = connect();
        if (i % 2 == 0) {
            client.connection->invalidate();
        }
    }
    ASSERT_TRUE(WaitFor([&] { return server->invalidated == 201; }));
    EXPECT_TRUE(WaitFor([&] { return descriptors() <= before; })) << descriptors() << " after " << before;
}

}  // namespace
