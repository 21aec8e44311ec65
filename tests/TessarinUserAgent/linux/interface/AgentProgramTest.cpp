#include <optional>
#include <thread>

#include "AgentProgram.h"
#include "support/MuteSocket.h"
#include "support/RawPeer.h"

// The agent as a process: how it starts and ends in surroundings that fail it.

namespace {

using namespace std::chrono_literals;
using testing::Contains;
namespace fs = std::filesystem;

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
    fake::MuteSocket mute(folder / "mute");
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
    fake::MuteSocket mute(folder / "mute");
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
    fake::MuteSocket mute(socket);
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
    EXPECT_EQ(second->wait(kPatience), -SIGTERM);
    first->signal(SIGCONT);
    End(*first);
}

TEST_F(AgentProgramTest, ALaunchSaysWhenTheRunningAgentDidNotTakeItsRequest) {
    for (const bool takes : {true, false}) {
        fake::RawPeer running(bus.address(), [takes](const QDBusMessage& call, QDBusConnection connection) {
            connection.send(takes ? call.createReply() : call.createErrorReply("org.example.Error", "busy"));
        });
        ASSERT_TRUE(running.own("com.tessarin.TessarinUserAgent"));
        fake::ChildProcess launch({program, "tessarin-scheme://showProperties?path=/f"}, environment,
                                  folder.path());
        EXPECT_EQ(launch.wait(kPatience), takes ? 0 : 1);
        EXPECT_EQ(launch.errors(),
                  takes ? "" : "TessarinUserAgent: the running agent did not take the request: busy\n");
    }
}

TEST_F(AgentProgramTest, TheEntriesOfFileManagersNeedNeitherBusNorDisplay) {
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent";
    fake::ChildProcess command({program, "--file-manager-action", "status", "none such"}, environment,
                               folder.path());
    EXPECT_EQ(command.wait(kPatience), 2);
    EXPECT_THAT(command.errors(), testing::StartsWith("No file manager is known as \"none such\".\n"));
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
