#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "PollingGate.h"
#include "XPCCommon/ScriptedUserAgent.h"
#include "support/FakeAccessibility.h"
#include "support/FakeWindowList.h"
#include "support/LogCapture.h"
#include "support/SystemLogCapture.h"
#include "useragent/Agent.h"
#include "useragent/AgentNames.h"

namespace {

std::atomic<int> g_loopStops{0};

}  // namespace

// This test program's end of the seam.
void useragent::StopCurrentRunLoop() {
    ++g_loopStops;
}

namespace {

using testing::ElementsAre;
using testing::StartsWith;

// Says when it is asked for the permission.
class NotingDesktop : public fake::Accessibility {
 public:
    explicit NotingDesktop(std::function<void()> onPrompt) : onPrompt_(std::move(onPrompt)) {}

    bool isProcessTrustedWithPrompt() override {
        onPrompt_();
        return fake::Accessibility::isProcessTrustedWithPrompt();
    }

 private:
    const std::function<void()> onPrompt_;
};

// Records the order in which the start-up asks for things, and fails where told.
class FakePlatform : public useragent::AgentPlatform {
 public:
    explicit FakePlatform(const fake::TemporaryFolder& folder)
        : executable(folder / "X.app/Contents/MacOS/X"), logFile(folder / "com.tessarin.UserAgent_0.log") {
        settingsRecord.LogLevel = "Debug";
    }

    cmn::proto::TSettings settings() override {
        struct sigaction action {};
        sigaction(SIGTERM, nullptr, &action);
        sigtermWasHandled = action.sa_handler == useragent::SigtermHandler;
        note("settings");
        return settingsRecord;
    }
    std::filesystem::path executablePath() override {
        note("executablePath");
        return executable;
    }
    std::filesystem::path userLogFolder() override { return logFolder; }
    std::optional<std::string> bundleShortVersion() override {
        note("bundleShortVersion");
        return version;
    }
    std::shared_ptr<useragent::Accessibility> accessibility() override {
        note("accessibility");
        return desktop;
    }
    std::shared_ptr<useragent::WindowList> windowList() override {
        note("windowList");
        return windows;
    }
    std::shared_ptr<cmn::Dispatch> dispatch() override {
        note("dispatch");
        return daemon.dispatch();
    }
    std::shared_ptr<cmn::XPCTransport> transport() override {
        note("transport");
        return daemon.transport();
    }
    std::shared_ptr<cmn::Semaphore> pollingPause() override {
        note("pollingPause");
        pause = std::make_shared<PollingGate>();
        return pause;
    }
    int runApplication(useragent::StatusSource source) override {
        note("runApplication");
        status = std::move(source);
        return application ? application() : 7;
    }

    void note(const std::string& step) {
        steps.push_back(step);
        if (step == failAt) {
            throw std::runtime_error(failure);
        }
    }

    std::vector<std::string> steps;
    bool sigtermWasHandled = false;  // before the first step
    std::string failAt;
    std::string failure = "it failed";
    std::filesystem::path executable;
    std::filesystem::path logFile;
    std::filesystem::path logFolder = "/nonexistent/folder for logs";
    cmn::proto::TSettings settingsRecord;
    std::optional<std::string> version = "1.2.3";
    std::shared_ptr<NotingDesktop> desktop = std::make_shared<NotingDesktop>([this] { note("permission"); });
    std::shared_ptr<fake::WindowList> windows = std::make_shared<fake::WindowList>();
    std::shared_ptr<PollingGate> pause;  // of the latest start
    ScriptedUserAgent daemon;
    std::function<int()> application;
    useragent::StatusSource status;  // while the application runs
};

class AgentTest : public testing::Test {
 protected:
    void TearDown() override {
        std::signal(SIGTERM, SIG_DFL);
        if (std::filesystem::exists(platform.logFile)) {
            log.text();  // what this test logged must not reach the next one's file
        }
    }

    fake::TemporaryFolder folder;
    FakePlatform platform{folder};
    fake::LogReader log{platform.logFile};
};

TEST_F(AgentTest, HandlesSigtermAndThenAsksTheSystemInTheOrderOfTheStartUp) {
    EXPECT_EQ(useragent::RunAgent(platform), 7);
    EXPECT_TRUE(platform.sigtermWasHandled);
    EXPECT_THAT(platform.steps,
                ElementsAre("settings", "executablePath", "bundleShortVersion", "accessibility", "permission",
                            "windowList", "pollingPause", "dispatch", "transport", "runApplication"));
    EXPECT_EQ(platform.desktop->prompts, 1);
}

TEST_F(AgentTest, WritesTheBannerThenTheVersionThenThePermission) {
    platform.desktop->trusted = false;
    useragent::RunAgent(platform);
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], std::string(60, '='));
    EXPECT_EQ(lines[2], std::string(60, '='));
    EXPECT_THAT(lines[3], testing::MatchesRegex("\\[ INFO\\] .* -- Starting TessarinUserAgent 1.2.3"));
    EXPECT_THAT(lines[4], testing::MatchesRegex("\\[ERROR\\] .*AXIsProcessTrustedWithOptions return false, "
                                                "UserAgent not trusted"));
}

TEST_F(AgentTest, ABundleWithoutVersionIsLoggedWithQuestionMarks) {
    platform.version = std::nullopt;
    useragent::RunAgent(platform);
    EXPECT_TRUE(log.contains("Starting TessarinUserAgent ????"));
}

TEST_F(AgentTest, LevelTraceAndDebugShowTheStartLineAndTheQuestionsOfTheDaemon) {
    for (const char* level : {"Debug", "Trace"}) {
        platform.settingsRecord.LogLevel = level;
        platform.desktop->addBrowser(11, std::string("url-at-") + level + "\n");
        platform.windows->set({{{"Firefox", 11}}});
        platform.application = [&] {
            platform.daemon.awaitExtractor();
            while (platform.daemon.askURL("Firefox").empty()) {
                std::this_thread::yield();
            }
            return 0;
        };
        useragent::RunAgent(platform);
        EXPECT_TRUE(log.contains("Starting TessarinUserAgent 1.2.3"));
        EXPECT_TRUE(log.contains(std::string("-- url-at-") + level + "\\x0a"));
    }
}

TEST_F(AgentTest, TellsTheApplicationHowTheWatchingIs) {
    const auto firefox = platform.desktop->addBrowser(11, "a.example");
    platform.desktop->addBrowser(12, "").application->fail("AXMainWindow",
                                                           useragent::AXError::cannotComplete);
    platform.windows->set({{{"Firefox", 11}, {"Google Chrome", 12}}});
    useragent::AgentStatus status;
    platform.application = [&] {
        platform.daemon.awaitExtractor();
        platform.daemon.dispatch()->runUntilIdle();
        platform.pause->awaitFirstCycle();
        firefox.field->set("AXValue", "b.example");
        platform.desktop->notify(firefox.field, "AXValueChanged");
        platform.status(status);
        return 0;
    };
    useragent::RunAgent(platform);
    EXPECT_EQ(status.version, "1.2.3");
    EXPECT_EQ(status.pid, ::getpid());
    EXPECT_EQ(status.services.at(0).name, "com.tessarin.UserAgent");
    EXPECT_TRUE(status.services.at(0).reached);
    ASSERT_EQ(status.browsers.size(), 1U) << "one that cannot be set up is tried again in each cycle";
    EXPECT_EQ(status.browsers[0].name, "Firefox");
    EXPECT_EQ(status.browsers[0].pid, 11);
    EXPECT_TRUE(status.browsers[0].readForSeconds);
    EXPECT_EQ(status.browsers[0].address, "b.example");
    ASSERT_TRUE(status.lastReport);
    EXPECT_EQ(status.lastReport->browser, "Firefox");
    EXPECT_EQ(status.lastReport->address, "b.example");
    EXPECT_LT(status.lastReport->secondsAgo, 3600U);
    EXPECT_LT(status.runningForSeconds, 3600U);

    useragent::AgentStatus afterwards;
    platform.status(afterwards);
    EXPECT_EQ(afterwards.version, "1.2.3");
    EXPECT_TRUE(afterwards.browsers.empty()) << "nothing is watched any more";
}

TEST_F(AgentTest, AsksForRootsServicesAloneWhenTheSettingsSaySo) {
    platform.daemon.transport()->service = cmn::XPCPeer{.userID = 4711};
    for (const bool required : {false, true}) {
        platform.settingsRecord.RequireRootServices = required;
        platform.application = [&] {
            platform.daemon.dispatch()->runUntilIdle();
            EXPECT_EQ(platform.daemon.hasExtractor(), !required);
            platform.daemon.dropExtractors();
            return 0;
        };
        useragent::RunAgent(platform);
    }
    EXPECT_TRUE(log.contains("so it is not used"));
}

TEST_F(AgentTest, EachLineOfTheStartAndOfTheQuestionsHasItsLevel) {
    useragent::RunAgent(platform);  // names the log file
    const auto linesAt = [this](const char* level) {
        const std::size_t before = log.lines().size();
        platform.settingsRecord.LogLevel = level;
        platform.application = [&] {
            platform.daemon.awaitExtractor();
            platform.daemon.askURL("Firefox");
            return 0;
        };
        useragent::RunAgent(platform);
        std::vector<std::string> lines = log.lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
        return lines;
    };
    const auto start = testing::HasSubstr(" -- Starting TessarinUserAgent ");
    const auto answer = testing::EndsWith(" operator() -- ");  // nothing is watched: an empty address
    EXPECT_THAT(linesAt("Warn"), Not(Contains(start)));
    const auto atInfo = linesAt("Info");
    EXPECT_THAT(atInfo, Contains(AllOf(start, StartsWith("[ INFO] "))));
    EXPECT_THAT(atInfo, Not(Contains(answer)));
    EXPECT_THAT(linesAt("Debug"), Contains(AllOf(answer, StartsWith("[DEBUG] "))));
}

TEST_F(AgentTest, NothingIsLoggedBeforeTheSettingsAreRead) {
    useragent::RunAgent(platform);  // names the log file
    const std::size_t before = log.lines().size();
    platform.failAt = "settings";
    useragent::RunAgent(platform);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), before + 1);
    EXPECT_THAT(lines.back(), testing::EndsWith(" -- it failed"));
}

TEST_F(AgentTest, LevelSilentWritesOnlyTheUnconditionalLines) {
    platform.settingsRecord.LogLevel = "Silent";
    useragent::RunAgent(platform);
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST_F(AgentTest, TheLogIsNamedBesideTheBundle) {
    EXPECT_EQ(useragent::LogStem("/A/B/X.app/Contents/MacOS/X"), "/A/B/com.tessarin.UserAgent");
}

TEST_F(AgentTest, TheLogGoesToTheUsersFolderWhereItCannotLieBesideTheBundle) {
    const fake::TemporaryFolder elsewhere;
    platform.executable = "/nonexistent/X.app/Contents/MacOS/X";
    platform.logFolder = elsewhere / "logs";
    useragent::RunAgent(platform);
    fake::LogReader reader(elsewhere / "logs" / "com.tessarin.UserAgent_0.log");
    EXPECT_EQ(reader.count("Starting TessarinUserAgent"), 1u);
    EXPECT_FALSE(reader.contains("cannot be written"));
}

TEST_F(AgentTest, WatchesTheThreeBrowsersOfTheProduct) {
    EXPECT_THAT(useragent::BrowserList(), ElementsAre("Safari", "Google Chrome", "Firefox"));
}

TEST_F(AgentTest, AFailureAtAnyStepIsLoggedAndEndsWithCodeZeroWithoutMainLoop) {
    useragent::RunAgent(platform);  // names the log file
    for (const char* step : {"settings", "executablePath", "bundleShortVersion", "accessibility",
                             "permission", "windowList", "pollingPause", "dispatch", "transport"}) {
        platform.failAt = step;
        platform.failure = std::string("no ") + step;
        platform.steps.clear();
        EXPECT_EQ(useragent::RunAgent(platform), 0);
        EXPECT_EQ(platform.steps.back(), step);
        EXPECT_THAT(log.linesWith(std::string(" -- no ") + step), ElementsAre(StartsWith("[ERROR]"))) << step;
    }
    EXPECT_EQ(platform.desktop->observerCount(), 0);
}

TEST_F(AgentTest, AFailedStartIsToldToTheSystemLogToo) {
    const fake::SystemLogCapture systemLog;
    platform.failAt = "settings";
    platform.failure = "no {} settings";
    EXPECT_EQ(useragent::RunAgent(platform), 0);
    EXPECT_THAT(systemLog.lines(), ElementsAre("TessarinUserAgent did not start -- no {} settings"));
}

TEST_F(AgentTest, AStartThatSucceedsIsNotToldToTheSystemLog) {
    const fake::SystemLogCapture systemLog;
    useragent::RunAgent(platform);
    EXPECT_THAT(systemLog.lines(), ElementsAre());
}

TEST_F(AgentTest, TheCauseOfAFailureFollowsIt) {
    useragent::RunAgent(platform);
    platform.application = []() -> int {
        try {
            throw std::runtime_error("no such file");
        } catch (const std::exception&) {
            std::throw_with_nested(std::runtime_error("Couldn't open it"));
        }
    };
    EXPECT_EQ(useragent::RunAgent(platform), 0);
    const auto lines = log.linesWith("[ERROR]");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], testing::EndsWith(" -- Couldn't open it"));
    EXPECT_THAT(lines[1], testing::EndsWith(" -- caused by: no such file"));
}

TEST_F(AgentTest, AFailureOfTheMainLoopIsLoggedToo) {
    platform.failAt = "runApplication";
    EXPECT_EQ(useragent::RunAgent(platform), 0);
    EXPECT_TRUE(log.contains(" -- it failed"));
    EXPECT_EQ(platform.desktop->observerCount(), 0);
}

TEST_F(AgentTest, WhatKeptThePlatformFromBeingMadeIsAFailureOfTheStart) {
    const auto failure = std::make_exception_ptr(std::runtime_error("no toolkit"));
    EXPECT_EQ(useragent::ReportStartFailure(platform, failure), 0);
    EXPECT_THAT(platform.steps, ElementsAre("settings", "executablePath", "bundleShortVersion"));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], std::string(60, '='));
    EXPECT_THAT(lines[3], testing::EndsWith(" -- Starting TessarinUserAgent 1.2.3"));
    EXPECT_THAT(lines[4], testing::MatchesRegex("\\[ERROR\\] .* -- no toolkit"));

    platform.settingsRecord.LogLevel = "Silent";
    EXPECT_EQ(useragent::ReportStartFailure(platform, failure), 0);
    EXPECT_EQ(log.lines().size(), 5u + 3u);
}

TEST_F(AgentTest, BracesInAFailureMessageAreInterpretedByTheFormatter) {
    useragent::RunAgent(platform);
    platform.failAt = "accessibility";
    platform.failure = "escaped {{}} braces";
    EXPECT_EQ(useragent::RunAgent(platform), 0);
    EXPECT_TRUE(log.contains(" -- escaped {} braces"));
    platform.failure = "a {} placeholder";
    EXPECT_EQ(useragent::RunAgent(platform), 0);
    const auto lines = log.linesWith("A start-up failure could not be formatted: ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], testing::EndsWith(" -- a {} placeholder"));
}

TEST_F(AgentTest, SigtermStopsTheRunLoopAndClearsTheRunFlag) {
    g_loopStops = 0;
    useragent::g_run = true;
    platform.application = [] {
        std::raise(SIGTERM);
        return 3;
    };
    EXPECT_EQ(useragent::RunAgent(platform), 3);
    EXPECT_EQ(g_loopStops, 1);
    EXPECT_FALSE(useragent::g_run);
    useragent::g_run = true;
}

TEST_F(AgentTest, ChangesReachTheDaemonOnceTheAgentRuns) {
    const auto browser = platform.desktop->addBrowser(11, "a");
    platform.windows->set({{{"Google Chrome", 11}}});
    platform.application = [&] {
        while (platform.desktop->observerCount() < 2) {
            std::this_thread::yield();
        }
        browser.field->set("AXValue", "b");
        while (platform.desktop->notify(browser.field, "AXValueChanged") == 0) {
            std::this_thread::yield();
        }
        while (std::ranges::count(platform.daemon.reports.all(), SentURL{"b", "Google Chrome", 11}) == 0) {
            std::this_thread::yield();
        }
        return 0;
    };
    useragent::RunAgent(platform);
}

TEST_F(AgentTest, ThePollingThreadMaySendWhileTheAgentEnds) {
    platform.desktop->addBrowser(11, "a");
    for (const bool fails : {false, true}) {
        std::promise<void> sending;
        std::atomic<bool> returned{false};
        const auto main = std::this_thread::get_id();
        // The polling thread holds the client, and through it the watcher, until the agent stops the watcher.
        platform.daemon.onSend = [&] {
            EXPECT_NE(std::this_thread::get_id(), main);
            sending.set_value();
            while (!platform.pause->signalled() && !returned) {
                std::this_thread::yield();
            }
            EXPECT_FALSE(returned) << "the agent let go of what it owns while it was in use";
        };
        platform.application = [&] {
            platform.daemon.awaitExtractor();
            platform.daemon.dropExtractors();
            platform.pause->awaitFirstCycle();
            platform.windows->set({{{"Google Chrome", 11}}});
            platform.pause->beginCycle();
            sending.get_future().wait();
            return fails ? throw std::runtime_error("the loop failed") : 0;
        };
        EXPECT_EQ(useragent::RunAgent(platform), 0);
        returned = true;
        EXPECT_EQ(platform.desktop->observerCount(), 0);
        EXPECT_EQ(log.count("the loop failed"), fails ? 1u : 0u);
        platform.windows->set({std::vector<useragent::WindowInfo>{}});
    }
}

TEST_F(AgentTest, TheEndWaitsForNoPollingPause) {
    platform.application = [&] {
        platform.pause->awaitFirstCycle();
        return 0;
    };
    EXPECT_EQ(useragent::RunAgent(platform), 0);
    EXPECT_EQ(platform.pause->pauses().size(), 1u) << "its time never passes";
}

TEST_F(AgentTest, AfterTheMainLoopNothingIsLeftObserved) {
    platform.desktop->addBrowser(11, "a");
    platform.windows->set({{{"Google Chrome", 11}}});
    platform.application = [&] {
        while (platform.desktop->observerCount() < 2) {
            std::this_thread::yield();
        }
        platform.daemon.awaitExtractor();
        platform.daemon.dropExtractors();
        return 0;
    };
    useragent::RunAgent(platform);
    EXPECT_EQ(platform.desktop->observerCount(), 0);
}

}  // namespace
