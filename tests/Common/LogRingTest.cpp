#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "common/LogFile.h"
#include "common/LogRing.h"
#include "common/fs.h"
#include "support/FileSizeLimit.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"

// The log on real files.

namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uintmax_t kDefaultMaxSize = 15'728'640;

// The process's working folder while it lives.
class WorkingFolder {
 public:
    explicit WorkingFolder(const fs::path& folder) { fs::current_path(folder); }
    ~WorkingFolder() { fs::current_path(before_); }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

 private:
    const fs::path before_ = fs::current_path();
};

// Writes files as the log does, and keeps what would have gone to the standard error stream.
class CapturingOutput : public cmn::LogOutput {
 public:
    explicit CapturingOutput(std::shared_ptr<std::string> echoed) : echoed_(std::move(echoed)) {}
    CapturingOutput(std::shared_ptr<std::string> echoed, std::size_t room)
        : echoed_(std::move(echoed)), room_(room) {}
    void echo(std::string_view text) override { *echoed_ += text; }
    std::optional<std::size_t> append(const char* file, std::string_view text) override {
        return LogOutput::append(file, text.substr(0, room_));
    }

 private:
    std::shared_ptr<std::string> echoed_;
    const std::size_t room_ = std::string::npos;  // bytes that a file takes of a text
};

class LogRingTest : public testing::Test {
 protected:
    fs::path file(int index) const { return folder_ / ("log_" + std::to_string(index) + ".log"); }
    void makeFile(int index, std::size_t size, hours age = hours(0)) {
        cmn::StrToFile(std::string(size, 'x'), file(index));
        fs::last_write_time(file(index), fs::file_time_type::clock::now() - age);
    }
    std::string content(int index) const { return cmn::FileToStr(file(index)); }
    std::string stem() const { return (folder_ / "log").string(); }

    void start(unsigned int maxSize, unsigned int fileCount = 2) {
        log_ = std::make_unique<cmn::LogFile>(std::make_unique<CapturingOutput>(echoed_));
        // The stem comes first: without one, files in the working directory decide which is chosen.
        log_->setLogPath(stem());
        log_->setLogMaxSize(maxSize);
        log_->setFileCount(fileCount);
    }
    void startWithDefaults() {
        log_ = std::make_unique<cmn::LogFile>(std::make_unique<CapturingOutput>(echoed_));
        log_->setLogPath(stem());
    }
    // One line, written when this returns.
    void write(const std::string& text) {
        log_->log(text);
        ASSERT_TRUE(log_->waitUntilWritten(std::chrono::minutes(1)));
    }
    // The same, and the log has ended.
    void pass(const std::string& text) {
        log_->log(text);
        log_.reset();
    }

    const fake::TemporaryFolder folder_;
    const std::shared_ptr<std::string> echoed_ = std::make_shared<std::string>();
    std::unique_ptr<cmn::LogFile> log_;
};

TEST_F(LogRingTest, CreatesTheFirstFileWhenGivenAStem) {
    start(10);
    EXPECT_EQ(log_->getLogPath(), file(0));
    EXPECT_TRUE(fs::exists(file(0)));
    EXPECT_FALSE(fs::exists(file(1)));
    pass("line");
    EXPECT_EQ(content(0), "line\n");
    EXPECT_EQ(*echoed_, "");
}

TEST_F(LogRingTest, AppendsToWhatIsThere) {
    makeFile(0, 3);
    start(10);
    pass("line");
    EXPECT_EQ(content(0), "xxxline\n");
}

TEST_F(LogRingTest, ResumesInTheFirstFileWithRoom) {
    makeFile(0, 10);
    makeFile(1, 9);
    makeFile(2, 1);
    start(10, 3);
    EXPECT_EQ(log_->getLogPath(), file(1));
}

TEST_F(LogRingTest, CountsAMissingFileAsRoom) {
    makeFile(0, 10);
    start(10);
    EXPECT_EQ(log_->getLogPath(), file(1));
    pass("line");
    EXPECT_EQ(content(0), std::string(10, 'x'));
    EXPECT_EQ(content(1), "line\n");
}

TEST_F(LogRingTest, PassesOverAFileOfExactlyTheLimitButAppendsToIt) {
    makeFile(0, 10, hours(1));
    makeFile(1, 10, hours(2));
    start(10);
    // Both are full at selection: the older one is taken. The writer finds nothing above the limit.
    EXPECT_EQ(log_->getLogPath(), file(1));
    pass("line");
    EXPECT_EQ(content(0), std::string(10, 'x'));
    EXPECT_EQ(content(1), std::string(10, 'x') + "line\n");
}

TEST_F(LogRingTest, LeavesTheOlderOfTwoFullFilesForTheOtherWhichItEmpties) {
    makeFile(0, 11, hours(2));
    makeFile(1, 12, hours(1));
    start(10);
    EXPECT_EQ(log_->getLogPath(), file(0));
    EXPECT_EQ(content(1), std::string(12, 'x'));
    pass("line");
    EXPECT_EQ(content(0), std::string(11, 'x'));
    EXPECT_EQ(content(1), "line\n");
}

TEST_F(LogRingTest, WrapsFromTheLastFileToTheFirst) {
    makeFile(0, 11, hours(1));
    makeFile(1, 11, hours(2));
    start(10);
    EXPECT_EQ(log_->getLogPath(), file(1));
    pass("line");
    EXPECT_EQ(content(0), "line\n");
    EXPECT_EQ(content(1), std::string(11, 'x'));
}

TEST_F(LogRingTest, TakesTheLowerIndexOfEquallyOldFullFiles) {
    const auto time = fs::file_time_type::clock::now() - hours(3);
    for (int i = 0; i < 3; ++i) {
        makeFile(i, 20);
        fs::last_write_time(file(i), i == 0 ? time + hours(1) : time);
    }
    start(10, 3);
    EXPECT_EQ(log_->getLogPath(), file(1));
}

TEST_F(LogRingTest, RingOfOneFileStartsItAnew) {
    makeFile(0, 11);
    start(10, 1);
    pass("line");
    EXPECT_EQ(content(0), "line\n");
}

TEST_F(LogRingTest, ChecksTheSizeBeforeABatchOnly) {
    start(10);
    const std::string longLine(50, 'a');
    pass(longLine);
    EXPECT_EQ(content(0), longLine + "\n");
    start(10);
    EXPECT_EQ(log_->getLogPath(), file(1));
}

TEST_F(LogRingTest, ChoosesAgainWhenTheLimitTheCountOrTheExtensionChanges) {
    makeFile(0, 15, hours(1));
    makeFile(1, 15, hours(2));
    start(10);
    EXPECT_EQ(log_->getLogPath(), file(1));
    log_->setLogMaxSize(16);
    EXPECT_EQ(log_->getLogPath(), file(0));
    log_->setLogMaxSize(10);
    EXPECT_EQ(log_->getLogPath(), file(1));
    log_->setFileCount(3);
    EXPECT_EQ(log_->getLogPath(), file(2));
    log_->setFileCount(1);
    EXPECT_EQ(log_->getLogPath(), file(0));
    log_->setFileCount(3);
    log_->setLogFileExtension("txt");
    EXPECT_EQ(log_->getLogPath(), stem() + "_0.txt");
}

TEST_F(LogRingTest, IgnoredSettingsLeaveTheRingAsItIs) {
    makeFile(0, 11, hours(2));
    makeFile(1, 11, hours(3));
    makeFile(2, 11, hours(4));
    start(10, 3);
    ASSERT_EQ(log_->getLogPath(), file(2));
    // Nothing is chosen anew either: the first file has room now.
    fs::remove(file(0));
    log_->setFileCount(0);
    log_->setLogPath("");
    log_->setLogFileExtension("");
    EXPECT_EQ(log_->getLogPath(), file(2));
}

TEST_F(LogRingTest, KeepsTheStemWhenTheFolderIsMissing) {
    start(10);
    log_->setLogPath((folder_ / "missing" / "log").string());
    EXPECT_EQ(log_->getLogPath(), file(0));
    EXPECT_FALSE(fs::exists(folder_ / "missing"));
    pass("line");
    EXPECT_EQ(content(0), "line\n");
}

TEST_F(LogRingTest, KeepsTheStemWhenTheFolderIsAFile) {
    start(10);
    cmn::StrToFile("", folder_ / "file");
    log_->setLogPath((folder_ / "file" / "log").string());
    pass("line");
    EXPECT_EQ(content(0), "line\n");
}

TEST_F(LogRingTest, WritesToStandardErrorWhenTheFolderVanishes) {
    fs::create_directory(folder_ / "logs");
    start(10);
    log_->setLogPath((folder_ / "logs" / "log").string());
    fs::remove_all(folder_ / "logs");
    pass("line");
    EXPECT_EQ(*echoed_, "line\n");
}

TEST_F(LogRingTest, WritesToStandardErrorWhenTheDiskIsFull) {
    start(10);
    const fake::FileSizeLimit limit(0);
    log_->log(LogLevel::Error, "first");
    log_->log(std::string(1 << 20, 'a'));
    pass("last");
    EXPECT_THAT(*echoed_, StartsWith("[ERROR] ["));
    EXPECT_THAT(*echoed_, HasSubstr("first\n"));
    EXPECT_THAT(*echoed_, HasSubstr(std::string(1 << 20, 'a') + "\nlast\n"));
    EXPECT_EQ(content(0), "");
}

TEST_F(LogRingTest, EachLineIsWrittenOnceAndWholeWhileTheDiskFillsUpAndHasRoomAgain) {
    start(1'000'000);
    {
        const fake::FileSizeLimit limit(1'000);
        for (int i = 100; i < 300; ++i)
            log_->log("line " + std::to_string(i) + " of many");
        write("the last one without room");
    }
    write("room again");
    EXPECT_THAT(content(0), EndsWith(" of many\nroom again\n"));
    std::string expected;
    for (int i = 100; i < 300; ++i)
        expected += "line " + std::to_string(i) + " of many\n";
    const auto inFile = content(0).substr(0, content(0).find("room again"));
    EXPECT_THAT(inFile.size(), testing::AllOf(testing::Gt(900U), testing::Le(1'000U)));
    EXPECT_EQ(inFile + *echoed_, expected + "the last one without room\n");
}

TEST_F(LogRingTest, AFileThatIsStartedAnewBeginsWithoutAnEmptyLine) {
    log_ = std::make_unique<cmn::LogFile>(std::make_unique<CapturingOutput>(echoed_, 15));
    log_->setLogPath(stem());
    log_->setLogMaxSize(10);
    log_->setFileCount(1);
    write("longer than the room");
    EXPECT_EQ(content(0), "longer than the");
    pass("line");
    EXPECT_EQ(content(0), "line\n");
    EXPECT_EQ(*echoed_, " room\n");
}

TEST_F(LogRingTest, TheEndThatATornLineGetsIsNothingOfTheNextText) {
    CapturingOutput output(echoed_, 1);
    cmn::LogRing ring(output);
    ring.setStem(stem());
    EXPECT_EQ(ring.write("\nab\n"), 1U);
    EXPECT_EQ(ring.write("\nc\n"), 0U);
    EXPECT_EQ(ring.write("\nc\n"), 1U);
    EXPECT_EQ(content(0), "a\nc");
}

TEST_F(LogRingTest, WritesThroughNoLink) {
    cmn::StrToFile("mine", folder_ / "target");
    fs::create_symlink(folder_ / "target", folder_ / "linked_0.log");
    start(10);
    log_->setLogPath((folder_ / "linked").string());
    EXPECT_EQ(log_->getLogPath(), file(0));
    fs::remove(file(0));
    fs::create_symlink(folder_ / "target", file(0));
    pass("line");
    EXPECT_EQ(cmn::FileToStr(folder_ / "target"), "mine");
    EXPECT_EQ(*echoed_, "line\n");
}

TEST_F(LogRingTest, GoesOnWhenTheNextFileCannotBeDeleted) {
    start(10);
    ASSERT_EQ(log_->getLogPath(), file(0));
    log_->log("longer than the limit");
    while (cmn::FileSizeNoThrow(file(0)) == 0)
        std::this_thread::yield();
    // A folder with content can be neither deleted nor opened.
    fs::create_directories(file(1) / "inside");
    pass("line");
    EXPECT_EQ(*echoed_, "line\n");
    EXPECT_EQ(content(0), "longer than the limit\n");
    EXPECT_TRUE(fs::exists(file(1) / "inside"));
}

TEST_F(LogRingTest, ManyThreadsFillARingWithoutLosingALineOfItsLastBatches) {
    start(1'000);
    fake::InThreads(4, [this](int) {
        for (int i = 0; i < 500; ++i) {
            log_->log(LogLevel::Info, "some text to fill the file");
            if (i % 50 == 0)
                log_->setLogMaxSize(1'000 + static_cast<unsigned int>(i));
            (void)log_->getLogPath();
        }
    });
    const auto last = log_->getLogPath();
    EXPECT_THAT(last, StartsWith(stem()));
    pass("end");
    const auto texts = content(0) + (fs::exists(file(1)) ? content(1) : "");
    EXPECT_THAT(texts, HasSubstr("end\n"));
    EXPECT_EQ(*echoed_, "");
}

TEST_F(LogRingTest, TurnsToTheNextFileAbove15MiBUnlessToldOtherwise) {
    startWithDefaults();
    fs::resize_file(file(0), kDefaultMaxSize);
    write("line");
    EXPECT_EQ(fs::file_size(file(0)), kDefaultMaxSize + 5);
    fs::resize_file(file(0), kDefaultMaxSize + 1);
    write("line");
    EXPECT_EQ(fs::file_size(file(0)), kDefaultMaxSize + 1);
    EXPECT_EQ(content(1), "line\n");
}

TEST_F(LogRingTest, ResumesInAFileBelow15MiBUnlessToldOtherwise) {
    makeFile(0, kDefaultMaxSize);
    makeFile(1, kDefaultMaxSize - 1);
    startWithDefaults();
    EXPECT_EQ(log_->getLogPath(), file(1));
}

TEST_F(LogRingTest, HasTwoFilesUnlessToldOtherwise) {
    makeFile(0, kDefaultMaxSize + 1, hours(1));
    makeFile(1, kDefaultMaxSize + 1, hours(2));
    startWithDefaults();
    EXPECT_EQ(log_->getLogPath(), file(1));
    write("line");
    EXPECT_EQ(log_->getLogPath(), file(0));
    EXPECT_EQ(content(0), "line\n");
    EXPECT_FALSE(fs::exists(file(2)));
}

TEST_F(LogRingTest, WithoutAStemTheFileGrowsOn) {
    const WorkingFolder folder(folder_.path());
    log_ = std::make_unique<cmn::LogFile>(std::make_unique<CapturingOutput>(echoed_));
    log_->setLogMaxSize(10);
    write("longer than the limit");
    write("line");
    EXPECT_EQ(log_->getLogPath(), "_0.log");
    EXPECT_EQ(cmn::FileToStr(folder_ / "_0.log"), "longer than the limit\nline\n");
    EXPECT_FALSE(fs::exists(folder_ / "_1.log"));
}

TEST_F(LogRingTest, TriesANewStemWithTheIndexOfTheCurrentFile) {
    makeFile(0, 10);
    start(10);
    ASSERT_EQ(log_->getLogPath(), file(1));
    const auto other = folder_ / "other";
    log_->setLogPath(other.string());
    EXPECT_TRUE(fs::exists(other.string() + "_1.log"));
    EXPECT_FALSE(fs::exists(other.string() + "_0.log"));
    EXPECT_EQ(log_->getLogPath(), other.string() + "_0.log");
}

TEST_F(LogRingTest, KeepsTheStemWhenTheNewOneHasNoFileOfTheCurrentIndex) {
    makeFile(0, 10);
    start(10);
    ASSERT_EQ(log_->getLogPath(), file(1));
    fs::create_directory(folder_ / "other_1.log");
    log_->setLogPath((folder_ / "other").string());
    EXPECT_EQ(log_->getLogPath(), file(1));
}

}  // namespace
