#include <gmock/gmock.h>
#include <stdlib.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/log.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"

// The process's one log and the functions that reach it.

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr auto kStamp = "\\[....\\...\\... ..:..:..\\]";

TEST(LogLevelFromStringTest, KnowsTheSixNames) {
    EXPECT_EQ(LogLevelFromString("Silent"), LogLevel::Silent);
    EXPECT_EQ(LogLevelFromString("Error"), LogLevel::Error);
    EXPECT_EQ(LogLevelFromString("Warn"), LogLevel::Warn);
    EXPECT_EQ(LogLevelFromString("Info"), LogLevel::Info);
    EXPECT_EQ(LogLevelFromString("Debug"), LogLevel::Debug);
    EXPECT_EQ(LogLevelFromString("Trace"), LogLevel::Trace);
}

TEST(LogLevelFromStringTest, TakesEveryOtherNameForInfo) {
    for (const auto* name : {"", "info", "debug", "TRACE", " Error", "Error ", "Unconditional", "2"})
        EXPECT_EQ(LogLevelFromString(name), LogLevel::Info) << name;
    EXPECT_EQ(LogLevelFromString(std::string_view("Error\0", 6)), LogLevel::Info);
}

// Made before everything else of the program that is made at its start.
struct MadeEarly {
    LogLevel level = LogLevelFromString("Trace");
};
constexpr int kFirstOfAll = 101;
[[gnu::init_priority(kFirstOfAll)]] const MadeEarly g_madeEarly;

TEST(LogLevelFromStringTest, KnowsTheNamesBeforeTheProgramIsSetUp) {
    EXPECT_EQ(g_madeEarly.level, LogLevel::Trace);
}

TEST(LogLevelTest, HasTheValuesOfTheProduct) {
    EXPECT_EQ(static_cast<int>(LogLevel::Unconditional), 0);
    EXPECT_EQ(static_cast<int>(LogLevel::Silent), 1);
    EXPECT_EQ(static_cast<int>(LogLevel::Error), 2);
    EXPECT_EQ(static_cast<int>(LogLevel::Warn), 3);
    EXPECT_EQ(static_cast<int>(LogLevel::Info), 4);
    EXPECT_EQ(static_cast<int>(LogLevel::Debug), 5);
    EXPECT_EQ(static_cast<int>(LogLevel::Trace), 6);
}

TEST(ProcessLogTest, LogFullNamesPlaceFunctionAndBody) {
    fake::LogCapture log(LogLevel::Info);
    LogFull(LogLevel::Error, "a/b/file.cpp", 42, "function", "the body");
    LogFull(LogLevel::Warn, "file.cpp", -1, "", "");
    LogFull(LogLevel::Debug, "file.cpp", 1, "function", "not written");
    const std::string stamp = kStamp;
    EXPECT_THAT(log.lines(),
                ElementsAre(MatchesRegex("\\[ERROR\\] " + stamp + " file.cpp:42 function -- the body"),
                            MatchesRegex("\\[ WARN\\] " + stamp + " file.cpp:-1  -- ")));
}

TEST(ProcessLogTest, LogFullNeverTakesTheBodyForAFormat) {
    fake::LogCapture log;
    LogFull(LogLevel::Error, "{}", 1, "{0}", "{} {broken");
    EXPECT_THAT(log.lines(), ElementsAre(testing::EndsWith(" {}:1 {0} -- {} {broken")));
}

TEST(ProcessLogTest, MacrosPassTheCallersPlaceAndTheFormattedBody) {
    fake::LogCapture log;
    const int line = __LINE__ + 1;
    TLOG_WARN("{} and {}", 1, "two");
    EXPECT_THAT(log.lines(), ElementsAre(testing::EndsWith("ProcessLogTest.cpp:" + std::to_string(line) +
                                                           " TestBody -- 1 and two")));
}

TEST(ProcessLogTest, MacrosCoverEveryLevel) {
    fake::LogCapture log(LogLevel::Trace);
    TLOG_ERROR("x");
    TLOG_WARN("x");
    TLOG_INFO("x");
    TLOG_DEBUG("x");
    TLOG_TRACE("x");
    std::vector<std::string> tags;
    for (const auto& line : log.lines())
        tags.push_back(line.substr(0, 7));
    EXPECT_THAT(tags, ElementsAre("[ERROR]", "[ WARN]", "[ INFO]", "[DEBUG]", "[TRACE]"));
}

TEST(ProcessLogTest, MacrosFormatNothingBelowTheLevel) {
    fake::LogCapture log(LogLevel::Info);
    int formatted = 0;
    TLOG_DEBUG("{}", ++formatted);
    EXPECT_EQ(formatted, 0);
    TLOG_INFO("{}", ++formatted);
    EXPECT_EQ(formatted, 1);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(ProcessLogTest, LogMessageIsBare) {
    fake::LogCapture log(LogLevel::Silent);
    LogMessage("bare {}");
    EXPECT_EQ(log.text(), "bare {}\n");
}

TEST(ProcessLogTest, StartMessageIsTheLocalTimeBetweenTwoRules) {
    fake::LogCapture log(LogLevel::Silent);
    const auto before = std::time(nullptr);
    LogStartMessage();
    const auto after = std::time(nullptr);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3U);
    const auto* rule = "============================================================";
    EXPECT_EQ(lines[0], rule);
    EXPECT_EQ(lines[2], rule);
    std::vector<std::string> expected;
    for (auto time = before; time <= after; ++time) {
        std::array<char, 32> text{};
        const auto local = cmn::GetLocalTime(time).value();
        std::strftime(text.data(), text.size(), "%Y.%m.%d %H:%M:%S", &local);
        expected.emplace_back(text.data());
    }
    EXPECT_THAT(expected, testing::Contains(lines[1]));
}

TEST(ProcessLogTest, SetLogPathKeepsTheStemWhenTheNewOneIsInAMissingFolder) {
    fake::LogCapture log;
    SetLogPath("/no such folder/stem");
    LogMessage("line");
    EXPECT_EQ(log.text(), "line\n");
}

TEST(ProcessLogTest, EmptyStemEmptyExtensionAndCountZeroChangeNothing) {
    fake::LogCapture log;
    SetLogPath("");
    SetLogFileExtension("");
    SetLogFileCount(0);
    LogMessage("line");
    EXPECT_EQ(log.text(), "line\n");
}

TEST(ProcessLogTest, ExtensionCountAndSizeReachTheLog) {
    const fake::TemporaryFolder folder;
    cmn::StrToFile("full!", folder / "log_0.txt");
    cmn::StrToFile("full!", folder / "log_1.txt");
    SetLogFileExtension("txt");
    SetLogFileCount(3);
    SetLogMaxSize(5);
    SetLogPath((folder / "log").c_str());
    fake::LogReader reader(folder / "log_2.txt");
    LogMessage("line");
    EXPECT_EQ(reader.text(), "line\n");
    SetLogFileCount(2);
    SetLogMaxSize(15'728'640);
    SetLogFileExtension("log");
}

TEST(ProcessLogTest, ConsoleShowsWhatTheFileHolds) {
    fake::LogCapture log;
    testing::internal::CaptureStderr();
    SetLogConsole(true);
    LogMessage("line");
    TLOG_ERROR("an error");
    const auto written = log.text();
    SetLogConsole(false);  // waits for the pass that writes the marker
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::StartsWith(written));
    EXPECT_EQ(written.substr(0, 5), "line\n");
}

TEST(ProcessLogTest, ManyThreadsMayUseItWhileItIsSetUp) {
    fake::LogCapture log;
    fake::InThreads(4, [](int t) {
        for (int i = 0; i < 200; ++i) {
            TLOG_INFO("thread {} line {}", t, i);
            if (t == 0)
                SetLogLevel(i % 2 == 0 ? LogLevel::Info : LogLevel::Trace);
        }
    });
    EXPECT_EQ(log.count("thread "), 800U);
}

// A static whose destructor logs when the process's log has already been closed.
struct LogsAtExit {
    ~LogsAtExit() { LogMessage("logged by a destructor at exit"); }
};

TEST(ProcessLogDeathTest, WritesTheLastLinesAtExit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The second process runs this test from its beginning as well; the folder is the first one's.
    constexpr auto kFolder = "LOG_AT_EXIT_FOLDER";
    std::unique_ptr<fake::TemporaryFolder> folder;
    const char* inherited = std::getenv(kFolder);
    if (inherited == nullptr) {
        folder = std::make_unique<fake::TemporaryFolder>();
        setenv(kFolder, folder->path().c_str(), 1);
    }
    const std::string stem = (inherited != nullptr ? inherited : folder->path().string()) + "/log";
    EXPECT_EXIT(
        {
            static const LogsAtExit early;  // made before the log, destroyed after it
            SetLogPath(stem.c_str());
            for (int i = 0; i < 1'000; ++i)
                LogMessage("line " + std::to_string(i));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    unsetenv(kFolder);
    const auto text = cmn::FileToStr(*folder / "log_0.log");
    EXPECT_THAT(text, testing::StartsWith("line 0\nline 1\n"));
    EXPECT_THAT(text, testing::EndsWith("line 998\nline 999\nlogged by a destructor at exit\n"));
}

}  // namespace
