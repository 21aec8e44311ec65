#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <thread>

#include "RecordingDaemon.h"
#include "support/FakeAccessibility.h"
#include "support/FakeWindowList.h"
#include "support/LogCapture.h"
#include "useragent/Agent.h"

namespace {

std::atomic<int> g_loopStops{0};

}  // namespace

// This test program's end of the seam.
void useragent::StopCurrentRunLoop() {
    ++g_loopStops;
}

namespace {

using testing::ElementsAre;

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
    std::function<void(std::chrono::nanoseconds)> sleeper() override {
        return [](std::chrono::nanoseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
    }
    int runApplication() override {
        note("runApplication");
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
    cmn::proto::TSettings settingsRecord;
    std::optional<std::string> version = "1.2.3";
    std::shared_ptr<fake::Accessibility> desktop = std::make_shared<fake::Accessibility>();
    std::shared_ptr<fake::WindowList> windows = std::make_shared<fake::WindowList>();
    RecordingDaemon daemon;
    std::function<int()> application;
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
                ElementsAre("settings", "executablePath", "bundleShortVersion", "accessibility", "windowList",
                            "dispatch", "transport", "runApplication"));
    EXPECT_EQ(platform.desktop->prompts, 1);
}

TEST_F(AgentTest, WritesTheBannerThenTheVersionThenThePermission) {
    platform.desktop->trusted = false;
    useragent::RunAgent(platform);
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], std::string(60, '='));
    EXPECT_EQ(lines[2], std::string(60, '='));
    EXPECT_THAT(lines[3], testing::EndsWith(" -- Starting TessarinUserAgent 1.2.3"));
    EXPECT_THAT(lines[4],
                testing::HasSubstr("AXIsProcessTrustedWithOptions return false, UserAgent not trusted"));
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

TEST_F(AgentTest, LevelSilentWritesOnlyTheUnconditionalLines) {
    platform.settingsRecord.LogLevel = "Silent";
    useragent::RunAgent(platform);
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST_F(AgentTest, TheLogIsNamedBesideTheBundle) {
    EXPECT_EQ(useragent::LogStem("/A/B/X.app/Contents/MacOS/X"), "/A/B/com.tessarin.UserAgent");
}

TEST_F(AgentTest, WatchesTheThreeBrowsersOfTheProduct) {
    EXPECT_THAT(useragent::BrowserList(), ElementsAre("Safari", "Google Chrome", "Firefox"));
}

TEST_F(AgentTest, AFailureAtAnyStepIsLoggedAndEndsWithCodeZeroWithoutMainLoop) {
    useragent::RunAgent(platform);  // names the log file
    for (const char* step : {"settings", "executablePath", "bundleShortVersion", "accessibility",
                             "windowList", "dispatch", "transport"}) {
        platform.failAt = step;
        platform.failure = std::string("no ") + step;
        platform.steps.clear();
        EXPECT_EQ(useragent::RunAgent(platform), 0);
        EXPECT_EQ(platform.steps.back(), step);
        EXPECT_TRUE(log.contains(std::string("[ERROR]"))) << step;
        EXPECT_TRUE(log.contains(std::string(" -- no ") + step)) << step;
    }
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
        return 0;
    };
    useragent::RunAgent(platform);
    EXPECT_THAT(platform.daemon.sent(), testing::Contains(SentURL{"b", "Google Chrome", 11}));
}

TEST_F(AgentTest, AfterTheMainLoopNothingIsLeftObserved) {
    platform.desktop->addBrowser(11, "a");
    platform.windows->set({{{"Google Chrome", 11}}});
    platform.application = [&] {
        while (platform.desktop->observerCount() < 2) {
            std::this_thread::yield();
        }
        platform.daemon.awaitExtractor();
        platform.daemon.dropExtractor();
        return 0;
    };
    useragent::RunAgent(platform);
    EXPECT_EQ(platform.desktop->observerCount(), 0);
}

}  // namespace
