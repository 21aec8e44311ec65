#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
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
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/WaitFor.h"

// The agent as a process, in a folder and on a bus of the test's own, without any display.
class AgentProgramTest : public testing::Test {
 protected:
    static constexpr std::chrono::seconds kPatience{30};
    // In its polling pause the agent used to wait for up to five seconds, for a bus or a display for two.
    static constexpr std::chrono::seconds kAtOnce{1};
    // The load of the machine may hold up one end, but not each of them.
    static constexpr int kAttempts = 5;

    AgentProgramTest() {
        std::filesystem::create_directories(program.parent_path());
        std::filesystem::copy_file(TESSARIN_AGENT, program);
        std::filesystem::create_directories(home());
        std::filesystem::permissions(home(), std::filesystem::perms::owner_all);
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
    bool logHas(const std::string& text) const {
        return testing::Value(log(), testing::Contains(testing::HasSubstr(text)));
    }
    void removeLog() const { std::filesystem::remove(folder / "com.tessarin.UserAgent_0.log"); }
    // Its first look at the windows has failed: it is in the pause after it.
    bool pauses() const { return logHas("CGWindowListCopyWindowInfo -- failed."); }
    template <typename Condition>
    static bool WaitUntil(Condition condition) {
        return fake::WaitInHandler(condition, kPatience);
    }
    // Whether the process has a handler of its own for the signal.
    static bool Handles(pid_t process, int signal) {
        std::ifstream status("/proc/" + std::to_string(process) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("SigCgt:")) {
                return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0;
            }
        }
        return false;
    }
    // How long the end takes, which is to be in order.
    static std::chrono::steady_clock::duration End(fake::ChildProcess& agent) {
        const auto begin = std::chrono::steady_clock::now();
        agent.signal(SIGTERM);
        EXPECT_EQ(agent.wait(kPatience), 0) << agent.errors();
        return std::chrono::steady_clock::now() - begin;
    }
    // The shortest of some ends; `bring` starts an agent and brings it where it is to be ended.
    static std::chrono::steady_clock::duration ShortestEnd(
        const std::function<std::unique_ptr<fake::ChildProcess>()>& bring) {
        auto shortest = std::chrono::steady_clock::duration::max();
        for (int i = 0; i < kAttempts && shortest >= kAtOnce && !testing::Test::HasFailure(); ++i) {
            shortest = std::min(shortest, End(*bring()));
        }
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(shortest).count();
        testing::Test::RecordProperty("milliseconds", static_cast<int>(milliseconds));
        return shortest;
    }

    fake::TemporaryFolder folder;
    fake::PrivateBus bus;
    const std::filesystem::path program =
        folder.path() / "TessarinUserAgent.app/Contents/Linux/TessarinUserAgent";
    std::map<std::string, std::string> environment;
};
