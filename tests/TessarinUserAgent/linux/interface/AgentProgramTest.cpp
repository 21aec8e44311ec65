#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"

// The agent as a process: how it starts and ends in surroundings that fail it.

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr auto kAgentPatience = 30s;
// In its polling pause the agent used to wait for up to five seconds, for a bus or a display for two.
constexpr auto kAtOnce = 1s;
// The load of the machine may hold up one end, but not each of them.
constexpr int kAttempts = 5;

template <typename Condition>
bool WaitUntil(Condition condition) {
    const auto limit = Clock::now() + kAgentPatience;
    while (!condition()) {
        if (Clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// A socket that lets clients connect and never says anything.
class SilentListener {
 public:
    explicit SilentListener(const std::string& path)
        : descriptor_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(descriptor_, 5), 0);
    }
    ~SilentListener() {
        for (const int client : clients_) {
            ::close(client);
        }
        ::close(descriptor_);
    }
    SilentListener(const SilentListener&) = delete;
    SilentListener& operator=(const SilentListener&) = delete;

    bool awaitClient() {
        pollfd ready{descriptor_, POLLIN, 0};
        if (::poll(&ready, 1, std::chrono::milliseconds(kAgentPatience).count()) != 1) {
            return false;
        }
        clients_.push_back(::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC));
        return clients_.back() >= 0;
    }

 private:
    const int descriptor_;
    std::vector<int> clients_;
};

// Whether the process has a handler of its own for the signal.
bool Handles(pid_t process, int signal) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigCgt:")) {
            return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0;
        }
    }
    return false;
}

class AgentProgramTest : public testing::Test {
 protected:
    AgentProgramTest() {
        fs::create_directories(program.parent_path());
        fs::copy_file(TESSARIN_AGENT, program);
        fs::create_directories(home());
        fs::permissions(home(), fs::perms::owner_all);
        environment = {{"HOME", home()},
                       {"XDG_RUNTIME_DIR", home()},
                       {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (folder / "no bus").string()},
                       {"DBUS_SESSION_BUS_ADDRESS", bus.address()},
                       {"DISPLAY", ""},
                       {"WAYLAND_DISPLAY", ""},
                       {"QT_QPA_PLATFORM", ""}};
        // The leak check makes a thread when the program ends, and it is not these tests' matter. The
        // toolkit's keyboard library copies texts by their length, without an end.
        const char* const options = std::getenv("ASAN_OPTIONS");
        environment["ASAN_OPTIONS"] =
            std::string(options != nullptr ? options : "") + ":detect_leaks=0:strict_string_checks=0";
        setLogLevel("Trace");
    }

    std::string home() const { return folder / "home"; }
    void setLogLevel(const std::string& level) const {
        std::ofstream(folder / "settings.json") << R"({"LogLevel": ")" << level << R"(", "Products": []})";
    }
    std::unique_ptr<fake::ChildProcess> start(std::vector<std::string> command = {}) const {
        command.push_back(program);
        return std::make_unique<fake::ChildProcess>(command, environment, folder.path());
    }
    std::vector<std::string> log() const { return fake::ReadLines(folder / "com.tessarin.UserAgent_0.log"); }
    bool logHas(const std::string& text) const { return testing::Value(log(), Contains(HasSubstr(text))); }
    void removeLog() const { fs::remove(folder / "com.tessarin.UserAgent_0.log"); }
    // Its first look at the windows has failed: it is in the pause after it.
    bool pauses() const { return logHas("CGWindowListCopyWindowInfo -- failed."); }
    // How long the end takes, which is to be in order.
    static Clock::duration End(fake::ChildProcess& agent) {
        const auto begin = Clock::now();
        agent.signal(SIGTERM);
        EXPECT_EQ(agent.wait(kAgentPatience), 0) << agent.errors();
        return Clock::now() - begin;
    }
    // The shortest of some ends; `bring` starts an agent and brings it where it is to be ended.
    static Clock::duration ShortestEnd(const std::function<std::unique_ptr<fake::ChildProcess>()>& bring) {
        auto shortest = Clock::duration::max();
        for (int i = 0; i < kAttempts && shortest >= kAtOnce && !testing::Test::HasFailure(); ++i) {
            shortest = std::min(shortest, End(*bring()));
        }
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(shortest).count();
        testing::Test::RecordProperty("milliseconds", static_cast<int>(milliseconds));
        return shortest;
    }

    fake::TemporaryFolder folder;
    fake::PrivateBus bus;
    const fs::path program = folder.path() / "TessarinUserAgent.app/Contents/Linux/TessarinUserAgent";
    std::map<std::string, std::string> environment;
};

TEST_F(AgentProgramTest, SigtermInThePollingPauseEndsItAtOnce) {
    const auto end = ShortestEnd([this] {
        removeLog();
        auto agent = start();
        EXPECT_TRUE(WaitUntil([this] { return pauses(); }));
        return agent;
    });
    EXPECT_LT(end, kAtOnce);
}

TEST_F(AgentProgramTest, SigtermAtAnyMomentOfTheStartEndsItInOrder) {
    for (const auto moment : {0ms, 2ms, 5ms, 10ms, 20ms, 50ms, 100ms, 200ms}) {
        removeLog();
        const auto agent = start();
        ASSERT_TRUE(WaitUntil([&] { return Handles(agent->pid(), SIGTERM); }));
        std::this_thread::sleep_for(moment);  // what it has come to is left to chance
        End(*agent);
        // What was logged before the end is written.
        const auto lines = log();
        EXPECT_TRUE(lines.empty() || logHas("Starting TessarinUserAgent")) << moment.count();
    }
}

TEST_F(AgentProgramTest, SigtermEndsTheWaitForAMuteSessionBus) {
    SilentListener mute(folder / "mute");
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + (folder / "mute").string();
    const auto end = ShortestEnd([&] {
        auto agent = start();
        EXPECT_TRUE(mute.awaitClient());
        return agent;
    });
    EXPECT_LT(end, kAtOnce);
    EXPECT_TRUE(log().empty()) << "it never came to read the settings";
}

TEST_F(AgentProgramTest, AMuteSessionBusIsGivenUpAndSaidAndTheAgentGoesOn) {
    SilentListener mute(folder / "mute");
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + (folder / "mute").string();
    const auto agent = start();
    ASSERT_TRUE(WaitUntil([this] { return pauses(); }));
    EXPECT_TRUE(logHas("The session bus does not give the agent its name: no answer in time"));
    End(*agent);
}

TEST_F(AgentProgramTest, SigtermEndsTheWaitForAMuteDisplay) {
    const fs::path displays = "/tmp/.X11-unix";
    if (fs::create_directory(displays)) {
        fs::permissions(displays, fs::perms::all | fs::perms::sticky_bit);
    }
    const std::string number = std::to_string(100'000 + ::getpid());
    const fs::path socket = displays / ("X" + number);
    SilentListener mute(socket);
    environment["DISPLAY"] = ":" + number;
    const auto end = ShortestEnd([&] {
        auto agent = start();
        EXPECT_TRUE(mute.awaitClient());
        return agent;
    });
    EXPECT_LT(end, kAtOnce);
    EXPECT_TRUE(log().empty());
    fs::remove(socket);
}

TEST_F(AgentProgramTest, ALaunchThatHandsOverIsNotKeptAliveByTheHandler) {
    // The name is taken by somebody who never answers.
    const auto first = start();
    ASSERT_TRUE(WaitUntil([this] { return pauses(); }));
    first->signal(SIGSTOP);
    const auto second = start();
    ASSERT_TRUE(WaitUntil([&] { return Handles(second->pid(), SIGTERM); }));
    ASSERT_TRUE(WaitUntil([&] { return !Handles(second->pid(), SIGTERM); }));
    second->signal(SIGTERM);
    EXPECT_EQ(second->wait(kAgentPatience), -SIGTERM);
    first->signal(SIGCONT);
    End(*first);
}

TEST_F(AgentProgramTest, ABusThatRefusesTheNameIsToldOnlyAfterTheSettingsWereRead) {
    const fake::PrivateBus refusing(fake::PrivateBus::Names::refused);
    environment["DBUS_SESSION_BUS_ADDRESS"] = refusing.address();
    for (const std::string level : {"Warn", "Silent"}) {
        setLogLevel(level);
        removeLog();
        const auto agent = start();
        const std::size_t banner = 3;
        ASSERT_TRUE(WaitUntil([&] { return level == "Silent" ? log().size() >= banner : pauses(); }));
        End(*agent);
        const auto lines = log();
        EXPECT_EQ(lines.front(), std::string(60, '='));
        const auto refusal = Contains(
            testing::MatchesRegex("\\[ WARN\\] .* -- The session bus does not give the agent its name: .+"));
        if (level == "Silent") {
            EXPECT_EQ(lines.size(), banner);
        } else {
            EXPECT_THAT(lines, refusal);
        }
        EXPECT_FALSE(fs::exists(folder / "_0.log")) << "a line from before the log had its name";
    }
}

// With the limit the whole user may have no more processes and threads than that; root has no such limit.
TEST_F(AgentProgramTest, ThreadsThatCannotBeHadAreAFailureOfTheStart) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs a user of its own, which only root can have";
    }
    const uid_t number =
        20'000 + static_cast<uid_t>(::getpid() % 30'000);  // nobody else runs anything as that
    const std::string user = std::to_string(number);
    bus.openToOthers();
    fake::ChildProcess display({"Xvfb", "-displayfd", "1", "-ac", "-noreset", "-nolisten", "tcp"});
    environment["DISPLAY"] = ":" + display.readLine().value_or("");
    for (const auto& entry : {folder.path(), fs::path(home())}) {
        ASSERT_EQ(::chown(entry.c_str(), number, 0), 0);
    }
    // A number between is enough or not: threads that the queues make on demand take part in the race.
    constexpr int kMost = 20;
    std::vector<int> enough;
    for (int count = 1; count <= kMost; ++count) {
        removeLog();
        const auto agent = start({"setpriv", "--reuid=" + user, "--regid=0", "--clear-groups", "prlimit",
                                  "--nproc=" + std::to_string(count)});
        std::optional<int> code;
        ASSERT_TRUE(WaitUntil([&] { return (code = agent->wait(0ms)) || pauses(); }))
            << count << ": neither ends nor runs";
        if (code) {
            EXPECT_EQ(*code, 0) << count << agent->errors();
            EXPECT_THAT(log(), Contains(testing::MatchesRegex(
                                   "\\[ERROR\\] .* -- thread constructor failed: Resource temporarily .*")))
                << count;
        } else {
            enough.push_back(count);
            End(*agent);
        }
    }
    EXPECT_THAT(enough, testing::Each(testing::Gt(4))) << "its queues alone have four threads";
    EXPECT_THAT(enough, Contains(kMost));
}

}  // namespace
