#include <gmock/gmock.h>
#include <stdlib.h>

#include <chrono>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "HeldOutput.h"
#include "common/LogFile.h"
#include "common/SystemUtils.h"
#include "support/InThreads.h"

namespace {

using fake::HeldOutput;
using fake::Written;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kMiB = 1 << 20;
constexpr auto kOverflowNotice = "The logs were removed from the queue because it overflowed";

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class LogFileTest : public testing::Test {
 protected:
    LogFileTest() {
        setenv("TZ", "XYZ-3", 1);  // three hours east of Greenwich
        tzset();
    }
    ~LogFileTest() override {
        unsetenv("TZ");
        tzset();
    }

    // Everything that was logged, after the log's end.
    std::string finish() {
        log_.reset();
        return written_->text();
    }

    // Holds the writer up in the pass of that line; what is logged from now on waits for `release`.
    void stopIn(const std::string& text) {
        written_->hold();
        log_->log(text);
        written_->waitForStop();
    }
    // Hands that many lines in, the numbers from 0 on, while the writer is held up in "first".
    void logBehind(int count) {
        stopIn("first");
        for (int i = 0; i < count; ++i)
            log_->log(std::to_string(i));
        written_->release();
    }

    // One line in a pass of its own, which is over when this returns.
    void writeNow(const std::string& text) {
        log_->log(text);
        ASSERT_TRUE(log_->waitUntilWritten(std::chrono::minutes(1)));
    }

    std::shared_ptr<Written> written_ = std::make_shared<Written>();
    std::unique_ptr<cmn::LogFile> log_ =
        std::make_unique<cmn::LogFile>(std::make_unique<HeldOutput>(written_));
};

TEST_F(LogFileTest, TagsEachLevelAndStampsItWithLocalTime) {
    log_->setLogLevel(LogLevel::Trace);
    for (int level = 1; level <= 6; ++level)
        log_->log(static_cast<LogLevel>(level), "body");
    EXPECT_THAT(
        Lines(finish()),
        ElementsAre("[unknown_level] [2001.09.09 04:46:40] body", "[ERROR] [2001.09.09 04:46:40] body",
                    "[ WARN] [2001.09.09 04:46:40] body", "[ INFO] [2001.09.09 04:46:40] body",
                    "[DEBUG] [2001.09.09 04:46:40] body", "[TRACE] [2001.09.09 04:46:40] body"));
}

TEST_F(LogFileTest, TagsUnknownLevelsAsUnknown) {
    log_->setLogLevel(static_cast<LogLevel>(9));
    log_->log(static_cast<LogLevel>(9), "high");
    log_->log(static_cast<LogLevel>(-1), "low");
    EXPECT_THAT(Lines(finish()), ElementsAre("[unknown_level] [2001.09.09 04:46:40] high",
                                             "[unknown_level] [2001.09.09 04:46:40] low"));
}

TEST_F(LogFileTest, StampsEachLineWithTheSecondItWasHandedIn) {
    stopIn("first");
    log_->log(LogLevel::Info, "a");
    written_->setTime(1'000'000'001);
    log_->log(LogLevel::Info, "b");
    written_->setTime(0);
    log_->log(LogLevel::Info, "c");
    written_->release();
    EXPECT_THAT(Lines(finish()),
                ElementsAre("first", "[ INFO] [2001.09.09 04:46:40] a", "[ INFO] [2001.09.09 04:46:41] b",
                            "[ INFO] [1970.01.01 03:00:00] c"));
}

TEST_F(LogFileTest, BeginsAtLevelInfo) {
    EXPECT_TRUE(log_->enabled(LogLevel::Info));
    EXPECT_FALSE(log_->enabled(LogLevel::Debug));
    log_->log(LogLevel::Debug, "dropped");
    log_->log(LogLevel::Info, "kept");
    EXPECT_EQ(finish(), "[ INFO] [2001.09.09 04:46:40] kept\n");
}

TEST_F(LogFileTest, DropsAMessageAboveTheLevelBeforeItIsCopied) {
    log_->log(LogLevel::Debug, "dropped");
    // The clock is read before the text is copied.
    EXPECT_EQ(written_->clockReads(), 0);
    log_->log(LogLevel::Info, "kept");
    EXPECT_EQ(written_->clockReads(), 1);
}

TEST_F(LogFileTest, WritesUnconditionalLinesBareAtEveryLevel) {
    for (const int level : {0, 1, 4, 6}) {
        log_->setLogLevel(static_cast<LogLevel>(level));
        log_->log("line " + std::to_string(level));
    }
    EXPECT_THAT(Lines(finish()), ElementsAre("line 0", "line 1", "line 4", "line 6"));
}

TEST_F(LogFileTest, LetsOnlyUnconditionalAndSilentLinesPassAtSilent) {
    log_->setLogLevel(LogLevel::Silent);
    for (int level = 0; level <= 6; ++level)
        log_->log(static_cast<LogLevel>(level), "body");
    EXPECT_THAT(Lines(finish()), ElementsAre("body", "[unknown_level] [2001.09.09 04:46:40] body"));
}

TEST_F(LogFileTest, LetsOnlyUnconditionalLinesPassAtLevelZero) {
    log_->setLogLevel(LogLevel::Unconditional);
    log_->log(LogLevel::Silent, "silent");
    log_->log("bare");
    EXPECT_EQ(finish(), "bare\n");
}

TEST_F(LogFileTest, WritesWhatCameInMeanwhileInOnePass) {
    stopIn("first");
    log_->log("second");
    log_->log("third");
    written_->release();
    finish();
    const auto passes = written_->passes();
    ASSERT_EQ(passes.size(), 2U);
    EXPECT_EQ(passes[0].text, "first\n");
    EXPECT_EQ(passes[1].text, "second\nthird\n");
}

TEST_F(LogFileTest, NamesTheFileWithAnEmptyStemInTheWorkingDirectory) {
    EXPECT_EQ(log_->getLogPath(), "_0.log");
    log_->log("line");
    finish();
    EXPECT_EQ(written_->passes().at(0).file, "_0.log");
}

TEST_F(LogFileTest, NamesFilesByStemIndexAndExtension) {
    log_->setLogPath("/no such folder/com.tessarin.UserAgent");
    EXPECT_EQ(log_->getLogPath(), "/no such folder/com.tessarin.UserAgent_0.log");
    EXPECT_EQ(log_->getLogPath("other"), "other_0.log");
    log_->setLogFileExtension("txt");
    EXPECT_EQ(log_->getLogPath(), "/no such folder/com.tessarin.UserAgent_0.txt");
    EXPECT_EQ(log_->getLogPath(""), "_0.txt");
}

TEST_F(LogFileTest, KeepsFullQueueOfHundredThousandLines) {
    logBehind(100'000);
    const auto lines = Lines(finish());
    ASSERT_EQ(lines.size(), 100'001U);
    EXPECT_EQ(lines[1], "0");
    EXPECT_EQ(lines.back(), "99999");
}

TEST_F(LogFileTest, OverflowKeepsTheNewest50001LinesBehindTheNotice) {
    logBehind(100'001);
    finish();
    const auto passes = written_->passes();
    ASSERT_EQ(passes.size(), 2U);
    const auto lines = Lines(passes[1].text);
    ASSERT_EQ(lines.size(), 50'002U);
    EXPECT_EQ(lines[0], kOverflowNotice);
    for (std::size_t i = 1; i < lines.size(); ++i)
        ASSERT_EQ(lines[i], std::to_string(49'999 + i));
}

TEST_F(LogFileTest, OverflowCountsTheNoticeAsALine) {
    stopIn("first");
    // 100,001 lines leave 50,002; 49,998 more fill the queue; the next one overflows it again.
    for (int i = 0; i < 100'001 + 49'998 + 1; ++i)
        log_->log(std::to_string(i));
    written_->release();
    finish();
    const auto lines = Lines(written_->passes().at(1).text);
    ASSERT_EQ(lines.size(), 50'002U);
    EXPECT_EQ(lines[0], kOverflowNotice);
    EXPECT_EQ(lines[1], "99999");
    EXPECT_EQ(lines.back(), "149999");
}

TEST_F(LogFileTest, KeepsFullQueueOf64MiBOfText) {
    stopIn("first");
    for (int i = 0; i < 64; ++i)
        log_->log(std::string(kMiB, static_cast<char>('0' + i)));
    log_->log("");
    written_->release();
    finish();
    const auto lines = Lines(written_->passes().at(1).text);
    ASSERT_EQ(lines.size(), 65U);
    EXPECT_EQ(lines[0], std::string(kMiB, '0'));
}

TEST_F(LogFileTest, OverflowOfTextKeepsTheNewestHalfBehindTheNotice) {
    stopIn("first");
    for (int i = 0; i < 64; ++i)
        log_->log(std::string(kMiB, static_cast<char>('0' + i)));
    log_->log("x");
    written_->release();
    finish();
    const auto lines = Lines(written_->passes().at(1).text);
    // The last 31 of those and the newest line: with one more it were above the half.
    ASSERT_EQ(lines.size(), 1U + 31U + 1U);
    EXPECT_EQ(lines[0], kOverflowNotice);
    for (std::size_t i = 1; i <= 31; ++i)
        ASSERT_EQ(lines[i], std::string(kMiB, static_cast<char>('0' + 32 + i)));
    EXPECT_EQ(lines.back(), "x");
}

TEST_F(LogFileTest, ALineLongerThanTheQueueIsKeptUntilTheNext) {
    const std::string longer(65 * kMiB, 'l');
    stopIn("first");
    log_->log("second");
    log_->log(longer);
    written_->release();
    ASSERT_TRUE(log_->waitUntilWritten(std::chrono::minutes(1)));
    stopIn("third");
    log_->log(longer);
    log_->log("fourth");
    written_->release();
    finish();
    const auto passes = written_->passes();
    ASSERT_EQ(passes.size(), 4U);
    EXPECT_TRUE(passes[1].text == std::string(kOverflowNotice) + "\n" + longer + "\n");
    EXPECT_EQ(passes[3].text, std::string(kOverflowNotice) + "\nfourth\n");
}

TEST_F(LogFileTest, AStuckDiskHoldsNoMoreThanTheQueueMay) {
    stopIn("first");
    const std::string line(20'000, 'x');
    for (int i = 0; i < 99'999; ++i)
        log_->log(line);
    written_->release();
    finish();
    const auto text = written_->passes().at(1).text;
    EXPECT_LE(text.size(), 65 * kMiB);
    EXPECT_THAT(text.substr(0, 100), testing::StartsWith(kOverflowNotice));
}

TEST_F(LogFileTest, OverflowNoticePassesAtLevelSilent) {
    log_->setLogLevel(LogLevel::Silent);
    stopIn("first");
    for (int i = 0; i < 100'001; ++i)
        log_->log(LogLevel::Silent, "line");
    written_->release();
    finish();
    EXPECT_EQ(Lines(written_->passes().at(1).text)[0], kOverflowNotice);
}

TEST_F(LogFileTest, EchoesTheSameTextThatIsWritten) {
    log_->setLogConsole(true);
    log_->log(LogLevel::Error, "one");
    log_->log("two");
    const auto text = finish();
    EXPECT_EQ(text, "[ERROR] [2001.09.09 04:46:40] one\ntwo\n");
    EXPECT_EQ(written_->echoed(), text);
}

TEST_F(LogFileTest, EchoesNothingUnlessAsked) {
    log_->setLogConsole(true);
    log_->setLogConsole(false);
    log_->log("line");
    finish();
    EXPECT_THAT(written_->echoed(), IsEmpty());
}

TEST_F(LogFileTest, EchoesOnceWhatNoFileTakes) {
    written_->refuseFiles();
    log_->setLogConsole(true);
    log_->log("line");
    EXPECT_THAT(finish(), IsEmpty());
    EXPECT_EQ(written_->echoed(), "line\n");
}

TEST_F(LogFileTest, KeepsTheStemWhenTheNewOneCannotBeOpened) {
    log_->setLogPath("/no such folder/good");
    written_->refuseFiles();
    log_->setLogPath("/no such folder/bad");
    EXPECT_EQ(log_->getLogPath(), "/no such folder/good_0.log");
}

TEST_F(LogFileTest, IgnoresEmptyStemEmptyExtensionAndCountZero) {
    log_->setLogPath("/no such folder/stem");
    log_->setLogFileExtension("txt");
    log_->setLogPath("");
    log_->setLogFileExtension("");
    log_->setFileCount(0);
    EXPECT_EQ(log_->getLogPath(), "/no such folder/stem_0.txt");
}

TEST_F(LogFileTest, WritesEverythingBeforeItEnds) {
    stopIn("first");
    for (int i = 0; i < 1'000; ++i)
        log_->log(std::to_string(i));
    std::thread end([this] { log_.reset(); });
    written_->release();
    end.join();
    const auto lines = Lines(written_->text());
    ASSERT_EQ(lines.size(), 1'001U);
    EXPECT_EQ(lines.back(), "999");
}

TEST_F(LogFileTest, CanBeWaitedForUntilWhatWasHandedInIsWritten) {
    EXPECT_TRUE(log_->waitUntilWritten(std::chrono::milliseconds(0)));
    stopIn("first");
    log_->log("second");
    EXPECT_FALSE(log_->waitUntilWritten(std::chrono::milliseconds(5)));
    written_->release();
    EXPECT_TRUE(log_->waitUntilWritten(std::chrono::minutes(1)));
    EXPECT_EQ(written_->text(), "first\nsecond\n");
    log_->close();
    log_->log("late");
    EXPECT_TRUE(log_->waitUntilWritten(std::chrono::milliseconds(0)));
}

TEST_F(LogFileTest, WritesLinesOfLatecomersAtOnce) {
    log_->log("early");
    log_->close();
    log_->log(LogLevel::Warn, "late");
    EXPECT_EQ(written_->text(), "early\n[ WARN] [2001.09.09 04:46:40] late\n");
    log_->close();
}

TEST_F(LogFileTest, ProducersAndTheNameNeverWaitForTheDisk) {
    stopIn("first");
    // The writer stands in the middle of a pass; these return all the same.
    log_->log(LogLevel::Error, "second");
    EXPECT_EQ(log_->getLogPath(), "_0.log");
    EXPECT_TRUE(log_->enabled(LogLevel::Error));
    written_->release();
    EXPECT_THAT(Lines(finish()), ElementsAre("first", "[ERROR] [2001.09.09 04:46:40] second"));
}

TEST_F(LogFileTest, EverySetterWaitsForThePassInProgress) {
    const std::vector<std::function<void()>> setters = {
        [&] { log_->setLogLevel(LogLevel::Trace); },
        [&] { log_->setLogConsole(true); },
        [&] { log_->setLogMaxSize(10); },
        [&] { log_->setFileCount(3); },
        [&] { log_->setLogFileExtension("txt"); },
        [&] { log_->setLogPath("/no such folder/stem"); },
    };
    stopIn("line");
    std::vector<std::future<void>> running;
    running.reserve(setters.size());
    for (const auto& setter : setters)
        running.push_back(std::async(std::launch::async, setter));
    for (auto& setter : running)
        EXPECT_EQ(setter.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_FALSE(log_->enabled(LogLevel::Trace));
    EXPECT_EQ(log_->getLogPath(), "_0.log");
    written_->release();
    for (auto& setter : running)
        setter.get();
    EXPECT_TRUE(log_->enabled(LogLevel::Trace));
    EXPECT_EQ(log_->getLogPath(), "/no such folder/stem_0.txt");
    finish();
    EXPECT_EQ(written_->echoed(), "");
}

TEST_F(LogFileTest, EchoesTheRestOfATextThatDoesNotFitAndBeginsALineOfItsOwnLater) {
    written_->setRoom(6);
    writeNow("first");
    written_->setRoom(9);
    writeNow("second line");
    written_->setRoom(0);
    writeNow("third");
    written_->setRoom(100);
    writeNow("fourth");
    writeNow("fifth");
    EXPECT_EQ(finish(), "first\nsecond li\nfourth\nfifth\n");
    EXPECT_EQ(written_->echoed(), "ne\nthird\n");
}

TEST_F(LogFileTest, EchoesWholeLinesWhenTheConsoleIsOnAndTheDiskIsFull) {
    log_->setLogConsole(true);
    written_->setRoom(3);
    writeNow("first");
    written_->setRoom(100);
    writeNow("second");
    EXPECT_EQ(finish(), "fir\nsecond\n");
    EXPECT_EQ(written_->echoed(), "first\nsecond\n");
}

TEST_F(LogFileTest, AnotherFileBeginsWithoutAnEmptyLine) {
    written_->setRoom(3);
    writeNow("first");
    written_->setRoom(100);
    log_->setLogFileExtension("txt");
    writeNow("second");
    log_->setLogFileExtension("log");
    writeNow("third");
    EXPECT_EQ(finish(), "firsecond\n\nthird\n");
    EXPECT_EQ(written_->passes().at(1).file, "_0.txt");
}

TEST_F(LogFileTest, KeepsTheOrderOfEachThread) {
    constexpr int kThreads = 4;
    constexpr int kLines = 2'000;
    fake::InThreads(kThreads, [this](int t) {
        for (int i = 0; i < kLines; ++i) {
            log_->log(std::to_string(t) + " " + std::to_string(i));
            if (i % 100 == 0)
                log_->setLogLevel(i % 200 == 0 ? LogLevel::Trace : LogLevel::Silent);
        }
    });
    std::vector<int> next(kThreads, 0);
    for (const auto& line : Lines(finish())) {
        std::istringstream in(line);
        std::size_t thread = 0;
        int number = -1;
        in >> thread >> number;
        ASSERT_EQ(next.at(thread)++, number);
    }
    EXPECT_THAT(next, testing::Each(kLines));
}

TEST(LogFileDeathTest, TimeWithoutLocalFormEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const auto written = std::make_shared<Written>();
            written->setTime(std::numeric_limits<std::time_t>::max());
            cmn::LogFile log(std::make_unique<HeldOutput>(written));
            log.log(LogLevel::Error, "line");
        },
        "time_t value out of range");
}

}  // namespace
