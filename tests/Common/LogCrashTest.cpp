#include <gmock/gmock.h>
#include <stdlib.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "HeldOutput.h"
#include "common/LogFile.h"
#include "common/fs.h"
#include "common/log.h"
#include "support/LogCapture.h"

// What a process that fails leaves in its logs. Each case has a process of its own, which runs the test from
// its beginning as well; the folder is the first one's.

namespace {

using fake::HeldOutput;
using fake::Written;
using testing::EndsWith;
using testing::KilledBySignal;

constexpr auto kCrashFolder = "LOG_CRASH_FOLDER";
constexpr int kCrashLines = 90'000;

class LogCrashDeathTest : public testing::Test {
 protected:
    LogCrashDeathTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        if (const char* inherited = std::getenv(kCrashFolder); inherited != nullptr) {
            folder_ = inherited;
            return;
        }
        made_ = std::make_unique<fake::TemporaryFolder>();
        folder_ = made_->path();
        setenv(kCrashFolder, folder_.c_str(), 1);
    }
    ~LogCrashDeathTest() override {
        if (made_)
            unsetenv(kCrashFolder);
    }

    // Logs lines as fast as it can and fails.
    void logAndFail(const std::function<void()>& fail) const {
        InstallLogCrashHandlers();
        SetLogPath((folder_ / "log").c_str());
        for (int i = 0; i < kCrashLines; ++i)
            LogMessage(std::to_string(i));
        fail();
    }
    std::string content(const std::string& name = "log") const {
        return cmn::FileToStr(folder_ / (name + "_0.log"));
    }
    static std::string linesAnd(const std::string& last) {
        std::string all;
        for (int i = 0; i < kCrashLines; ++i)
            all += std::to_string(i) + "\n";
        return all + last + "\n";
    }

    std::filesystem::path folder_;

 private:
    std::unique_ptr<fake::TemporaryFolder> made_;
};

// The test program would catch an exception on its own thread.
void Throw() {
    std::thread([] { throw std::runtime_error("the\nreason"); }).join();
}

TEST_F(LogCrashDeathTest, AnUncaughtExceptionLosesNoLineAndIsNamed) {
    EXPECT_EXIT(logAndFail(Throw), KilledBySignal(SIGABRT), "the\nreason");
    EXPECT_TRUE(content() == linesAnd("Ended by an exception that nobody caught: the\\x0areason"));
}

TEST_F(LogCrashDeathTest, AnExceptionWithoutTextIsNamedToo) {
    EXPECT_EXIT(logAndFail([] { std::thread([] { throw 1; }).join(); }), KilledBySignal(SIGABRT), "");
    EXPECT_TRUE(content() == linesAnd("Ended by an exception that nobody caught"));
}

TEST_F(LogCrashDeathTest, TerminateWithoutExceptionLosesNoLine) {
    EXPECT_EXIT(logAndFail([] { std::terminate(); }), KilledBySignal(SIGABRT), "");
    EXPECT_TRUE(content() == linesAnd("Ended by std::terminate"));
}

TEST_F(LogCrashDeathTest, AbortLosesNoLine) {
    EXPECT_EXIT(logAndFail([] { std::abort(); }), KilledBySignal(SIGABRT), "");
    EXPECT_TRUE(content() == linesAnd("Ended by the signal SIGABRT"));
}

TEST_F(LogCrashDeathTest, ASignalOfAnotherProcessLosesNoLineAndEndsTheProcess) {
    EXPECT_EXIT(logAndFail([] { std::raise(SIGILL); }), KilledBySignal(SIGILL), "");
    EXPECT_TRUE(content() == linesAnd("Ended by the signal SIGILL"));
}

TEST_F(LogCrashDeathTest, AFaultLosesNoLineAndEndsTheProcess) {
    // A sanitizer turns the signal into an exit status, after its report.
    const auto failed = [](int status) { return status != 0; };
    EXPECT_EXIT(logAndFail([] { __builtin_trap(); }), failed, "");
    EXPECT_THAT(content(), EndsWith("89999\nEnded by the signal SIGILL\n"));
    EXPECT_EQ(content().size(), linesAnd("Ended by the signal SIGILL").size());
}

TEST_F(LogCrashDeathTest, EveryLogIsWrittenNotOnlyTheProcesss) {
    EXPECT_EXIT(
        {
            cmn::LogFile other;
            other.setLogPath((folder_ / "other").string());
            for (int i = 0; i < kCrashLines; ++i)
                other.log(std::to_string(i));
            logAndFail([] { std::abort(); });
        },
        KilledBySignal(SIGABRT), "");
    EXPECT_TRUE(content("other") == linesAnd("Ended by the signal SIGABRT"));
    EXPECT_TRUE(content() == linesAnd("Ended by the signal SIGABRT"));
}

TEST_F(LogCrashDeathTest, ALogThatIsGoneIsLeftAlone) {
    EXPECT_EXIT(
        {
            for (int i = 0; i < 20; ++i)
                cmn::LogFile().setLogPath((folder_ / "gone").string());
            logAndFail([] { std::abort(); });
        },
        KilledBySignal(SIGABRT), "");
    EXPECT_EQ(content("gone"), "");
    EXPECT_TRUE(content() == linesAnd("Ended by the signal SIGABRT"));
}

TEST_F(LogCrashDeathTest, AStuckDiskHoldsTheEndUpForAboutASecond) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EXIT(
        {
            InstallLogCrashHandlers();
            const auto written = std::make_shared<Written>();
            written->hold();
            cmn::LogFile log(std::make_unique<HeldOutput>(written));
            log.log("line");
            written->waitForStop();
            std::abort();
        },
        KilledBySignal(SIGABRT), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST_F(LogCrashDeathTest, TheWritersOwnFailureIsNamed) {
    EXPECT_EXIT(
        {
            InstallLogCrashHandlers();
            class WithoutTime : public cmn::LogOutput {
                std::time_t now() override { return std::numeric_limits<std::time_t>::max(); }
            };
            cmn::LogFile log(std::make_unique<WithoutTime>());
            log.setLogPath((folder_ / "log").string());
            log.log(LogLevel::Error, "line");
        },
        KilledBySignal(SIGABRT), "time_t value out of range");
    EXPECT_EQ(content(), "Ended by an exception that nobody caught: time_t value out of range\n");
}

TEST_F(LogCrashDeathTest, WithoutALogNothingIsWritten) {
    EXPECT_EXIT(
        {
            std::filesystem::current_path(folder_);
            InstallLogCrashHandlers();
            std::abort();
        },
        KilledBySignal(SIGABRT), "^$");
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

// Waits for the log on the log's own writer thread.
class WaitingOutput : public cmn::LogOutput {
 public:
    explicit WaitingOutput(bool& waited) : waited_(waited) {}
    std::optional<std::size_t> append(const char*, std::string_view text) override {
        waited_ = log->waitUntilWritten(std::chrono::hours(1));
        return text.size();
    }

    cmn::LogFile* log = nullptr;

 private:
    bool& waited_;
};

TEST(LogCrashTest, TheWriterDoesNotWaitForItself) {
    bool waited = true;
    auto output = std::make_unique<WaitingOutput>(waited);
    auto* const waiting = output.get();
    cmn::LogFile log(std::move(output));
    waiting->log = &log;
    log.log("line");
    log.close();
    EXPECT_FALSE(waited);
}

}  // namespace
