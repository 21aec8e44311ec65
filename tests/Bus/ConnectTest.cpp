#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <ostream>

#include "BusLine.h"
#include "ScriptedBus.h"
#include "support/MuteSocket.h"

// How a connection begins, and how it does not.
namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

constexpr auto kConnectDeadline = 300ms;
constexpr const char* kAuthenticated = "DATA\r\nOK 1234deadbeef1234deadbeef12345678\r\n";

Options Hasty(const std::string& address) {
    Options options;
    options.address = address;
    options.connectDeadline = kConnectDeadline;
    return options;
}

// Somebody at a socket, or nobody, that is no bus.
struct NoBus {
    std::string name;
    std::function<std::shared_ptr<void>(const std::string& path)> make;
    std::string reason;  // part of it

    friend std::ostream& operator<<(std::ostream& out, const NoBus& noBus) { return out << noBus.name; }
};

fake::ScriptedBus::Script Says(std::string text, bool hangsUp) {
    return [text = std::move(text), hangsUp](int client) {
        fake::Say(client, text);
        if (!hangsUp) {
            fake::AwaitEnd(client);
        }
    };
}

NoBus Scripted(const std::string& name, fake::ScriptedBus::Script script, const std::string& reason) {
    return {name,
            [script = std::move(script)](const std::string& path) {
                return std::make_shared<fake::ScriptedBus>(path, script);
            },
            reason};
}

int ConnectTo(const std::string& path) {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

// A listener that has no room for further clients.
struct FullSocket {
    explicit FullSocket(const std::string& path) : listener(path) {
        for (int client = 0; (client = ConnectTo(path)) >= 0;) {
            clients.push_back(client);
        }
    }
    ~FullSocket() {
        for (const int client : clients) {
            ::close(client);
        }
    }
    FullSocket(const FullSocket&) = delete;
    FullSocket& operator=(const FullSocket&) = delete;

    fake::MuteSocket listener;
    std::vector<int> clients;
};

const std::vector<NoBus>& NoBuses() {
    static const std::vector<NoBus> all{
        {"AnAbsentSocket", [](const std::string& /*path*/) { return nullptr; }, "No such file"},
        {"ASocketWhereNobodyListens",
         [](const std::string& path) {
             const fake::MuteSocket left(path);
             return nullptr;
         },
         "Connection refused"},
        {"AListenerThatNeverAccepts",
         [](const std::string& path) { return std::make_shared<fake::MuteSocket>(path); },
         "no answer within"},
        {"AListenerWithoutRoom", [](const std::string& path) { return std::make_shared<FullSocket>(path); },
         "unavailable"},
        Scripted("AListenerThatSaysNothing", Says("", false), "no answer within"),
        Scripted("AListenerThatStopsWithinTheAuthentication", Says("DATA\r\n", false), "no answer within"),
        Scripted("AListenerThatStopsAfterTheAuthentication", Says(kAuthenticated, false), "no answer within"),
        Scripted(
            "AListenerThatSaysOneByteAtATime",
            [](int client) {
                for (const char* at = kAuthenticated; fake::Say(client, {at, 1});) {
                    at += at[1] != '\0' ? 1 : 0;
                    std::this_thread::sleep_for(25ms);
                }
            },
            ""),
        Scripted("AListenerThatSaysGarbage", Says(std::string(100'000, 'x'), false), ""),
        Scripted("AListenerThatSaysGarbageAfterTheAuthentication",
                 Says(kAuthenticated + std::string(100'000, '\xff'), false), ""),
        Scripted("AListenerThatHangsUpAtOnce", Says("", true), ""),
        Scripted("AListenerThatHangsUpAfterTheAuthentication", Says(kAuthenticated, true), ""),
        Scripted("ABusThatRefusesThisUser", Says("DATA\r\nREJECTED EXTERNAL\r\n", false),
                 "does not let this user in"),
    };
    return all;
}

class NoBusTest : public testing::TestWithParam<NoBus> {
 protected:
    ~NoBusTest() override { loop->stop(); }

    fake::TemporaryFolder folder;
    fake::PrivateBus bus;
    std::shared_ptr<Loop> loop = std::make_shared<Loop>();
};

TEST_P(NoBusTest, IsLostOnceAndInTimeAndHoldsNobodyUp) {
    const fake::BusLine other(loop, bus.address());
    ASSERT_TRUE(other.awaitReady());
    const std::string path = folder / "no-bus";
    const auto noBus = GetParam().make(path);
    const std::size_t descriptors = fake::OpenDescriptors();
    {
        const fake::BusLine line(loop, Hasty("unix:path=" + path));
        const auto end = Clock::now() + 15s;
        while (line.heard->lost == 0 && Clock::now() < end) {
            const auto answer =
                other->callAndWait(other->newCall(kBusName, kBusPath, kBusName, "GetId"), Clock::now() + 3s);
            ASSERT_TRUE(answer) << answer.error().message;
        }
        ASSERT_TRUE(fake::Settle(*loop));
        EXPECT_EQ(line.heard->lost, 1);
        EXPECT_EQ(line.heard->ready, 0);
        EXPECT_NE(line.reason(), "");
        EXPECT_NE(line.reason().find(GetParam().reason), std::string::npos) << line.reason();
        EXPECT_FALSE(line->isReady());
        EXPECT_EQ(line->uniqueName(), "");
        EXPECT_FALSE(line->busUser());
        EXPECT_FALSE(line->newSignal("/a", "a.B", "C"));
        line->close("late");
        ASSERT_TRUE(fake::Settle(*loop));
        EXPECT_EQ(line.heard->lost, 1);
    }
    EXPECT_TRUE(fake::WaitFor([&] { return fake::OpenDescriptors() <= descriptors; }))
        << fake::OpenDescriptors() << " instead of " << descriptors;
}

TEST_P(NoBusTest, GivesWayToTheNextAddress) {
    const std::string path = folder / "no-bus";
    const auto noBus = GetParam().make(path);
    const fake::BusLine line(loop,
                             Hasty("tcp:host=localhost,port=9;unix:path=" + path + ";" + bus.address()));
    ASSERT_TRUE(line.awaitReady()) << line.reason();
    EXPECT_TRUE(line->callAndWait(line->newCall(kBusName, kBusPath, kBusName, "GetId"), fake::Soon()));
    EXPECT_EQ(line.heard->lost, 0);
}

TEST_P(NoBusTest, IsLeftAtAnyTime) {
    const fake::BusLine other(loop, bus.address());
    ASSERT_TRUE(other.awaitReady());
    const std::string path = folder / "no-bus";
    const auto noBus = GetParam().make(path);
    const std::size_t descriptors = fake::OpenDescriptors();
    Options options = Hasty("unix:path=" + path);
    options.connectDeadline = 60s;
    std::vector<std::shared_ptr<fake::BusLine::Heard>> heard;
    for (int i = 0; i < 20; ++i) {
        const fake::BusLine line(loop, options);
        heard.push_back(line.heard);
        if (i % 2 == 0) {
            fake::Settle(*loop);  // it has begun
        }
    }
    EXPECT_TRUE(fake::WaitFor([&] { return fake::OpenDescriptors() <= descriptors; }))
        << fake::OpenDescriptors() << " instead of " << descriptors;
    for (const auto& one : heard) {
        EXPECT_EQ(one->ready, 0);
        EXPECT_LE(one->lost, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, NoBusTest, testing::ValuesIn(NoBuses()),
                         [](const auto& one) { return one.param.name; });

class ConnectTest : public fake::WithBus {
 protected:
    fake::TemporaryFolder folder;
};

TEST_F(ConnectTest, NeedsALocalAddress) {
    for (const char* address : {"", ";;", "tcp:host=localhost,port=1;unixexec:path=/bin/sh", "nonsense"}) {
        const fake::BusLine line(loop, Hasty(address));
        ASSERT_TRUE(line.awaitLost());
        EXPECT_EQ(line.reason(), "its address names no local socket");
    }
}

TEST_F(ConnectTest, TellsThatItIsLostWhenNoAddressOfSeveralLeadsToABus) {
    const fake::MuteSocket mute(folder / "mute");
    const fake::BusLine line(
        loop, Hasty("unix:path=" + (folder / "absent").string() + ";unix:path=" + (folder / "mute").string() +
                    ";unix:path=" + (folder / "missing").string()));
    ASSERT_TRUE(line.awaitLost());
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(line.heard->lost, 1);
    EXPECT_EQ(line.reason(), "unix:path=" + (folder / "missing").string() + ": No such file or directory");
}

TEST_F(ConnectTest, UnderstandsABusThatSpeaksOneByteAtATime) {
    const fake::ScriptedBus slow(folder / "slow", [this](int client) {
        fake::Relay(client, bus.socket(), nullptr, [client](std::string& bytes) {
            bool heard = true;
            for (const char byte : bytes) {
                heard = heard && fake::Say(client, {&byte, 1});
                std::this_thread::yield();
            }
            bytes.clear();
            return heard;
        });
    });
    const fake::BusLine line(loop, "unix:path=" + (folder / "slow").string());
    ASSERT_TRUE(line.awaitReady()) << line.reason();
    EXPECT_TRUE(line->callAndWait(line->newCall(kBusName, kBusPath, kBusName, "ListNames"), fake::Soon()));
}

TEST_F(ConnectTest, IsLostWhereThePolicyOfTheBusRefusesTheUser) {
    const std::string socket = folder / "strict";
    std::ofstream(folder / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>system</type><listen>unix:path="
        << socket
        << "</listen><auth>EXTERNAL</auth><policy context=\"mandatory\"><deny user=\"*\"/>"
           "</policy></busconfig>\n";
    fake::ChildProcess daemon({"dbus-daemon", "--nofork", "--nopidfile", "--print-address",
                               "--config-file=" + (folder / "bus.conf").string()});
    ASSERT_TRUE(daemon.readLine()) << daemon.errors();
    Options options = Hasty("unix:path=" + socket);
    options.connectDeadline = 60s;
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(line.awaitLost());
    EXPECT_EQ(line.heard->ready, 0);
}

TEST_F(ConnectTest, KnowsTheUserOfTheBusAndItsOwnNameWhenReady) {
    const fake::BusLine line(loop, bus.address());
    ASSERT_TRUE(line.awaitReady());
    EXPECT_TRUE(line->isReady());
    EXPECT_EQ(line->busUser(), geteuid());
    EXPECT_TRUE(line->uniqueName().starts_with(":1."));
    line->close("enough");
    EXPECT_FALSE(line->isReady());
    EXPECT_FALSE(line->busUser());
    EXPECT_EQ(line->uniqueName(), "");
}

TEST_F(ConnectTest, TakesCallsFromTheMomentInWhichItSaysSo) {
    std::promise<bool> answered;
    std::shared_ptr<Connection> connection;
    std::promise<void> assigned;
    auto known = assigned.get_future().share();
    connection = Connection::open(loop, Options{.address = bus.address()},
                                  {[&] {
                                       known.wait();
                                       connection->askBus("GetId", [&](const Connection::Reply& reply) {
                                           answered.set_value(static_cast<bool>(reply));
                                       });
                                   },
                                   nullptr, nullptr});
    assigned.set_value();
    EXPECT_TRUE(answered.get_future().get());
}

TEST(WellKnownBusesTest, AreReachedByTheirLocalSocketsOnly) {
    EXPECT_EQ(
        LocalAddresses("unix:path=/a;tcp:host=h;unix:abstract=b,guid=1;unixexec:path=/bin/sh;;unixdir:/c"),
        (std::vector<std::string>{"unix:path=/a", "unix:abstract=b,guid=1"}));
    EXPECT_TRUE(LocalAddresses("").empty());
}

}  // namespace
