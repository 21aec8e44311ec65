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

// Answers in the order of their arrival. Thread-safe.
class Numbers {
 public:
    void add(std::int32_t number) {
        const std::lock_guard lock(mutex_);
        numbers_.push_back(number);
    }
    std::vector<std::int32_t> all() {
        const std::lock_guard lock(mutex_);
        return numbers_;
    }

 private:
    std::mutex mutex_;
    std::vector<std::int32_t> numbers_;
};

class DBusClientTest : public DBusTest {
 protected:
    // A connection to a bus at another address, with short deadlines.
    std::shared_ptr<cmn::XPCConnection> connectElsewhere(const std::string& address, ConnectionEvents& events,
                                                         std::chrono::milliseconds deadline = 200ms) {
        cmn::DBusXPCOptions other;
        other.systemBusAddress = address;
        other.busDeadline = deadline;
        replaceTransport(other);
        auto connection = makeConnection(events);
        connection->resume();
        return connection;
    }
};

TEST_F(DBusClientTest, CallsAServiceAndGetsEveryTypeBack) {
    const auto server = startServer();
    ConnectionEvents events;
    const auto connection = connect(events);
    const auto echo = proxy(*connection, events);
    std::atomic<int> replies{0};
    EchoProtocol::Records records;
    std::vector<std::string> names;
    EchoProtocol::Flags flags;
    std::int32_t number = 0;
    echo->records("file \xe2\x82\xac", [&](const auto& value) { records = value, ++replies; });
    echo->names([&](const auto& value) { names = value, ++replies; });
    echo->flags([&](const auto& value) { flags = value, ++replies; });
    echo->number("four", [&](std::int32_t value) { number = value, ++replies; });
    ASSERT_TRUE(WaitFor([&] { return replies == 4; })) << events.error();
    EXPECT_EQ(records, (EchoProtocol::Records{{{"Name", "file \xe2\x82\xac"}, {"costUsd", "12"}},
                                              {},
                                              {{"\xc3\xa4", "\xf0\x9f\xa6\x8a"}}}));
    EXPECT_THAT(names, ElementsAre("a", "", "\xc3\xa4"));
    EXPECT_EQ(flags, (EchoProtocol::Flags{{"no", false}, {"yes", true}}));
    EXPECT_EQ(number, 4);
    EXPECT_EQ(events.errors, 0);
}

TEST_F(DBusClientTest, MoreCallsThanABusAllowsAtOnceAreAnsweredInTheirOrder) {
    const auto server = startServer();
    server->onNumber = [](const std::string& text, const auto& reply) { reply(std::stoi(text)); };
    ConnectionEvents events;
    const auto connection = connect(events);
    const auto echo = proxy(*connection, events);
    constexpr std::int32_t kCount = 2000;
    const auto answers = std::make_shared<Numbers>();
    for (std::int32_t i = 0; i < kCount; ++i) {
        echo->number(std::to_string(i), [answers](std::int32_t answer) { answers->add(answer); });
    }
    echo->note("after them");
    ASSERT_TRUE(WaitFor([&] { return answers->all().size() == kCount; }));
    std::vector<std::int32_t> expected(kCount);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(answers->all(), expected);
    EXPECT_TRUE(WaitFor([&] { return server->notes() == std::vector<std::string>{"after them"}; }));
    EXPECT_EQ(events.errors, 0) << events.error();
}

TEST_F(DBusClientTest, CallsThatPileUpAtAServiceThatHangsFailInTheEnd) {
    RawPeer service(bus.address(), [](const QDBusMessage&, const QDBusConnection&) {});  // never answers
    ASSERT_TRUE(service.own("com.example.Echo"));
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    const auto echo = proxy(*connection, events);
    for (int i = 0; i < 10'500; ++i) {
        echo->version([](const std::string&) {});
    }
    EXPECT_TRUE(WaitFor([&] { return events.errors >= 400; })) << "more than so many do not wait";
    EXPECT_THAT(events.error(), HasSubstr("Too many messages are waiting"));
    EXPECT_LE(events.errors, 500);
    service.release("com.example.Echo");
    EXPECT_TRUE(WaitFor([&] { return events.errors == 10'500; })) << "the others fail when it leaves";
}

TEST_F(DBusClientTest, AConnectionThatIsLetGoWithManyOpenCallsLeavesTheBus) {
    std::mutex mutex;
    std::string client;
    RawPeer service(bus.address(), [&](const QDBusMessage& call, const QDBusConnection&) {
        const std::lock_guard lock(mutex);
        client = call.service().toStdString();  // and never answers
    });
    ASSERT_TRUE(service.own("com.example.Echo"));
    ConnectionEvents events;
    auto connection = makeConnection(events);
    connection->resume();
    auto echo = proxy(*connection, events);
    for (int i = 0; i < 300; ++i) {
        echo->version([echo](const std::string&) {});
    }
    const auto name = [&] {
        const std::lock_guard lock(mutex);
        return client;
    };
    ASSERT_TRUE(WaitFor([&] { return !name().empty(); }));
    echo.reset();
    connection.reset();
    EXPECT_TRUE(WaitFor([&] { return !service.hasOwner(name()); }));
}

TEST_F(DBusClientTest, AMessageToAnAbsentServiceFailsWithWordsThatHelp) {
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    proxy(*connection, events)->note("lost");
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1; }));
    EXPECT_THAT(events.suggestion(), HasSubstr("com.example.Echo"));
    EXPECT_THAT(events.suggestion(), HasSubstr("nobody owns the name"));
}

TEST_F(DBusClientTest, ACallFailsWhenTheServiceGivesUpItsNameAndKeepsSilent) {
    std::atomic<int> asked{0};
    RawPeer daemon(bus.address(), [&](const QDBusMessage&, const QDBusConnection&) { ++asked; });
    ASSERT_TRUE(daemon.own(kEchoService));
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    proxy(*connection, events)->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return asked == 1; }));
    ASSERT_TRUE(daemon.release(kEchoService));
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1 && events.interruptions == 1; }));
    EXPECT_THAT(events.suggestion(), HasSubstr("went away"));
    ASSERT_TRUE(daemon.own(kEchoService));
    ASSERT_TRUE(WaitFor([&] {
        proxy(*connection, events)->note("are you back?");
        return asked > 1;
    }));
    EXPECT_EQ(events.invalidations, 0);
}

TEST_F(DBusClientTest, AServiceThatForgetsToAnswerMakesTheCallFail) {
    auto server = std::make_shared<EchoServer>(transport, kEchoService);
    server->onNumber = [](const std::string&, const auto&) {};
    server->start();
    ASSERT_TRUE(WaitFor([&] { return listenerEvents().size() == 1; }));
    ConnectionEvents events;
    const auto connection = connect(events);
    proxy(*connection, events)->number("x", [](std::int32_t) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1; }));
    EXPECT_THAT(events.error(), HasSubstr("not answered"));
}

TEST_F(DBusClientTest, ACallThatIsNeverAnsweredFailsAtTheDeadline) {
    RawPeer daemon(bus.address(), [](const QDBusMessage&, const QDBusConnection&) {});
    ASSERT_TRUE(daemon.own(kEchoService));
    cmn::DBusXPCOptions impatient = options();
    impatient.replyDeadline = 300ms;
    replaceTransport(impatient);
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    const auto start = Clock::now();
    proxy(*connection, events)->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1; }));
    EXPECT_GE(Clock::now() - start, 270ms);  // timers are coarse
    EXPECT_EQ(events.invalidations + events.interruptions, 0);
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
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    const int count = static_cast<int>(std::size(wrongAnswers));
    for (int i = 0; i < count; ++i) {
        proxy(*connection, events)->version([](const std::string&) { ADD_FAILURE(); });
    }
    ASSERT_TRUE(WaitFor([&] { return events.errors == count; })) << events.errors;
    EXPECT_THAT(events.error(), HasSubstr("\"as\""));
}

TEST_F(DBusClientTest, AnErrorAnswerIsHandedOn) {
    RawPeer daemon(bus.address(), [](const QDBusMessage& message, const QDBusConnection& connection) {
        connection.send(
            message.createErrorReply(QStringLiteral("com.example.Broken"), QStringLiteral("so sorry")));
    });
    ASSERT_TRUE(daemon.own(kEchoService));
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    proxy(*connection, events)->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1; }));
    EXPECT_EQ(events.error(), "com.example.Broken: so sorry");
    EXPECT_THAT(events.suggestion(), HasSubstr("so sorry"));
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
    ConnectionEvents events;
    const auto connection = makeConnection(events);
    connection->resume();
    std::atomic<std::size_t> size{0};
    proxy(*connection, events)->records("", [&](const auto& records) {
        size = records[0].at("Name").size();
    });
    ASSERT_TRUE(WaitFor([&] { return size != 0; })) << events.error();
    EXPECT_EQ(size, 8U * 1024 * 1024);
    proxy(*connection, events)->version([](const std::string&) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1; }));
    EXPECT_THAT(events.error(), HasSubstr("LimitsExceeded: It is too large to be read"));
}

TEST_F(DBusClientTest, AMessageThatIsTooLargeFailsAndTheConnectionLives) {
    const auto server = startServer();
    ConnectionEvents events;
    const auto connection = connect(events);
    const std::string huge(17 * 1024 * 1024, 'x');
    proxy(*connection, events)->note(huge);
    ASSERT_TRUE(WaitFor([&] { return events.errors == 1; }));
    proxy(*connection, events)->number(huge, [](std::int32_t) { ADD_FAILURE(); });
    ASSERT_TRUE(WaitFor([&] { return events.errors == 2; }));
    EXPECT_TRUE(answers(*connection));
    EXPECT_EQ(events.invalidations + events.interruptions, 0);
}

TEST_F(DBusClientTest, TextThatIsNoUTF8IsRepairedAndTextEndsAtANul) {
    const auto server = startServer();
    ConnectionEvents events;
    const auto connection = connect(events);
    proxy(*connection, events)
        ->note(
            "a\xff\xfe"
            "b\xed\xa0\x80");
    proxy(*connection, events)->note(std::string("cut\0off", 7));
    ASSERT_TRUE(WaitFor([&] { return server->notes().size() == 2; })) << events.error();
    EXPECT_THAT(server->notes()[0], testing::StartsWith("a\xef\xbf\xbd"));
    EXPECT_EQ(server->notes()[1], "cut");
    EXPECT_TRUE(answers(*connection));
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
    ConnectionEvents events;
    const auto connection = connect(events);
    std::promise<void> busy;
    std::promise<void> goOn;
    dispatch->loop()->post([&busy, going = goOn.get_future().share()] {
        busy.set_value();
        going.wait();
    });
    busy.get_future().wait();
    ASSERT_TRUE(known.release(kEchoService) && unknown.own(kEchoService));
    const int before = first;
    proxy(*connection, events)->version(nullptr);
    EXPECT_TRUE(WaitFor([&] { return first + second > before; }));
    EXPECT_EQ(second, 0);
    goOn.set_value();
    EXPECT_TRUE(WaitFor([&] { return events.interruptions == 1; }));
    EXPECT_TRUE(answers(*connection));
    EXPECT_GT(second, 0);
}

TEST_F(DBusClientTest, TheConnectionsOfATransportThatEndsAreInvalidated) {
    const auto server = startServer();
    auto other = std::make_shared<cmn::DBusXPCTransport>(dispatch, options());
    ConnectionEvents events;
    const auto connection = other->createConnection(kEchoService, cmn::XPCConnectionOptions::privileged);
    connection->setRemoteObjectInterface(CreateEchoInterface());
    events.watch(*connection);
    connection->resume();
    ASSERT_TRUE(answers(*connection));
    const auto kept = proxy(*connection, events);
    other.reset();
    kept->note("nobody hears this");
    connection->invalidate();
    kept->note("nor this");
    EXPECT_TRUE(WaitFor([&] { return events.invalidations == 1 && server->invalidated == 1; }));
    EXPECT_THAT(server->notes(), testing::IsEmpty());
}

TEST_F(DBusClientTest, ALostBusInvalidatesAndFailsWhatWaits) {
    auto server = std::make_shared<EchoServer>(transport, kEchoService);
    server->onNumber = [](const std::string&, auto reply) {
        std::thread([reply] { std::this_thread::sleep_for(500ms); }).detach();  // holds the reply
    };
    server->start();
    ASSERT_TRUE(WaitFor([&] { return listenerEvents().size() == 1; }));
    ConnectionEvents events;
    const auto connection = connect(events);
    proxy(*connection, events)->number("x", [](std::int32_t) { ADD_FAILURE(); });
    ASSERT_TRUE(answers(*connection));
    bus.kill();
    ASSERT_TRUE(WaitFor([&] { return events.invalidations == 1 && events.errors == 1; }));
    EXPECT_EQ(events.interruptions, 0);
    ASSERT_TRUE(WaitFor([&] { return listenerEvents().size() == 2; }));
    EXPECT_EQ(listenerEvents()[1].state, cmn::DBusListenerState::lost);
}

TEST_F(DBusClientTest, AnAbsentBusInvalidates) {
    ConnectionEvents events;
    const auto connection = connectElsewhere("unix:path=/nonexistent/bus", events);
    proxy(*connection, events)->note("lost");
    ASSERT_TRUE(WaitFor([&] { return events.invalidations == 1 && events.errors == 1; }));
    EXPECT_THAT(events.suggestion(), HasSubstr("/nonexistent/bus"));
}

TEST_F(DBusClientTest, ARefusingSocketInvalidates) {
    ConnectionEvents events;
    fake::TemporaryFolder folder;
    { const MuteSocket closed(folder / "bus"); }
    const auto connection = connectElsewhere("unix:path=" + (folder / "bus").string(), events);
    EXPECT_TRUE(WaitFor([&] { return events.invalidations == 1; }));
}

TEST_F(DBusClientTest, AnAddressThatIsNoLocalSocketInvalidates) {
    for (const char* address :
         {"nonsense", "tcp:host=127.0.0.1,port=1", "unix:path=", "unix:path=%zz", ";;"}) {
        ConnectionEvents events;
        const auto connection = connectElsewhere(address, events);
        EXPECT_TRUE(WaitFor([&] { return events.invalidations == 1; })) << address;
    }
}

TEST_F(DBusClientTest, ASocketThatAcceptsAndKeepsSilentInvalidatesAfterTheDeadlineAndBlocksNobody) {
    for (const bool authenticates : {false, true}) {
        ConnectionEvents events;
        fake::TemporaryFolder folder;
        const MuteSocket mute(folder / "bus", authenticates);
        const auto start = Clock::now();
        auto connection = connectElsewhere("unix:path=" + (folder / "bus").string(), events, 1s);
        proxy(*connection, events)->note("lost");
        EXPECT_LT(Clock::now() - start, 900ms) << "nobody waits for the bus";
        ASSERT_TRUE(WaitFor([&] { return events.invalidations == 1 && events.errors == 1; }));
        EXPECT_GE(Clock::now() - start, 950ms);  // timers are coarse
        EXPECT_LT(Clock::now() - start, 10s);
    }
}

TEST_F(DBusClientTest, ASilentBusBlocksNeitherInvalidateNorTheEndOfAConnection) {
    fake::TemporaryFolder folder;
    const MuteSocket mute(folder / "bus", true);
    ConnectionEvents events;
    auto connection = connectElsewhere("unix:path=" + (folder / "bus").string(), events, 20s);
    std::this_thread::sleep_for(50ms);  // it waits for the bus now
    const auto start = Clock::now();
    connection->invalidate();
    connection.reset();
    connection = makeConnection(events);
    connection->resume();
    connection.reset();
    EXPECT_LT(Clock::now() - start, 10s) << "a call waited for the bus";
}

TEST_F(DBusClientTest, ASilentBusHoldsUpNoOtherBus) {
    const auto server = startServer();
    fake::TemporaryFolder folder;
    const MuteSocket mute(folder / "bus", true);
    cmn::DBusXPCOptions mixed = options();
    mixed.sessionBusAddress = "unix:path=" + (folder / "bus").string();
    replaceTransport(mixed);
    const auto silent = transport->createConnection(kEchoService, cmn::XPCConnectionOptions::none);
    silent->resume();
    const auto start = Clock::now();
    ConnectionEvents events;
    const auto connection = connect(events);
    EXPECT_LT(Clock::now() - start, 2s) << "the deadline of the silent bus is five seconds";
}

TEST_F(DBusClientTest, AFrozenBusBlocksNobodyAndDeliversAfterItsThaw) {
    const auto server = startServer();
    ConnectionEvents events;
    const auto connection = connect(events);
    const auto echo = proxy(*connection, events);
    bus.freeze();
    const auto start = Clock::now();
    const std::string text(10'000, 'x');
    for (int i = 0; i < 500; ++i) {  // far more than the socket takes
        echo->note(text);
    }
    const auto second = makeConnection(events);
    second->resume();
    EXPECT_LT(Clock::now() - start, 500ms);
    bus.thaw();
    EXPECT_TRUE(WaitFor([&] { return server->notes().size() == 500; }));
    EXPECT_TRUE(answers(*second));
}

TEST_F(DBusClientTest, AListOfAddressesIsTriedInOrder) {
    const auto server = startServer();
    ConnectionEvents events;
    const auto connection =
        connectElsewhere("tcp:host=x;unix:path=/nonexistent/bus;" + bus.address(), events);
    EXPECT_TRUE(answers(*connection));
}

TEST_F(DBusClientTest, TheChoiceOfTheBusFollowsThePrivilege) {
    const auto server = startServer();
    cmn::DBusXPCOptions split = options();
    split.sessionBusAddress = "unix:path=/nonexistent/bus";
    replaceTransport(split);
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
    ConnectionEvents events;
    const auto connection = connectElsewhere(starting.address(), events);
    EXPECT_FALSE(answers(*connection));
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
    ConnectionEvents events;
    connect(events);
    ASSERT_TRUE(WaitFor([&] { return server->invalidated == 1; }));
    const auto before = descriptors();
    for (int i = 0; i < 200; ++i) {
        const auto connection = connect(events);
        if (i % 2 == 0) {
            connection->invalidate();
        }
    }
    ASSERT_TRUE(WaitFor([&] { return server->invalidated == 201; }));
    EXPECT_TRUE(WaitFor([&] { return descriptors() <= before; })) << descriptors() << " after " << before;
}

}  // namespace
