#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "common/LogOutput.h"
#include "common/fs.h"
#include "support/FileSizeLimit.h"
#include "support/LogCapture.h"
#include "support/NeedsProc.h"

// The log's output on real files.

namespace {

namespace fs = std::filesystem;
using testing::Optional;

class LogOutputTest : public testing::Test {
 protected:
    std::optional<std::size_t> append(std::string_view text) { return output_.append(file_.c_str(), text); }
    std::string content() const { return cmn::FileToStr(file_); }

    const fake::TemporaryFolder folder_;
    const fs::path file_ = folder_ / "file.log";
    cmn::LogOutput output_;
};

// The flags of a descriptor of this process that has the file open; empty when there is none.
std::optional<int> FlagsOfOpenFile(const fs::path& file) {
    constexpr int kOctal = 8;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
        if (fs::read_symlink(entry.path(), error) != file)
            continue;
        try {
            const auto info = cmn::FileToStr("/proc/self/fdinfo/" + entry.path().filename().string());
            return std::stoi(info.substr(info.find("flags:") + std::string_view("flags:").size()), nullptr,
                             kOctal);
        } catch (const std::exception&) {
            // Closed meanwhile.
        }
    }
    return std::nullopt;
}

TEST_F(LogOutputTest, TakesTheTimeFromTheSystemClock) {
    // Bounds from the same reading of the clock: a finer one may be a second ahead of it.
    const auto before = std::time(nullptr);
    const auto time = output_.now();
    const auto after = std::time(nullptr);
    EXPECT_LE(before, time);
    EXPECT_GE(after, time);
}

TEST_F(LogOutputTest, EchoesToTheStandardErrorStream) {
    testing::internal::CaptureStderr();
    output_.echo(std::string_view("a\0b\n", 4));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("a\0b\n", 4));
}

TEST_F(LogOutputTest, AppendsAndSaysHowMuch) {
    EXPECT_THAT(append(""), Optional(0U));
    EXPECT_EQ(content(), "");
    EXPECT_THAT(append("one\n"), Optional(4U));
    EXPECT_THAT(append("two"), Optional(3U));
    EXPECT_EQ(content(), "one\ntwo");
}

TEST_F(LogOutputTest, SaysThatAFileCannotBeOpened) {
    fs::create_directory(file_);
    EXPECT_EQ(append(""), std::nullopt);
    EXPECT_EQ(output_.append((folder_ / "missing" / "file").c_str(), "text"), std::nullopt);
}

TEST_F(LogOutputTest, MakesAFileForItsOwnerAlone) {
    const auto mask = umask(0);
    append("text");
    umask(mask);
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(LogOutputTest, LeavesAnExistingFileItsPermissions) {
    const auto everybody = fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read;
    cmn::StrToFile("", file_);
    fs::permissions(file_, everybody);
    append("text");
    EXPECT_EQ(fs::status(file_).permissions(), everybody);
}

TEST_F(LogOutputTest, FollowsNoLink) {
    cmn::StrToFile("mine", folder_ / "target");
    fs::create_symlink(folder_ / "target", file_);
    EXPECT_EQ(append("text"), std::nullopt);
    EXPECT_EQ(cmn::FileToStr(folder_ / "target"), "mine");
    fs::remove(file_);
    fs::create_symlink(folder_ / "missing", file_);
    EXPECT_EQ(append("text"), std::nullopt);
    EXPECT_FALSE(fs::exists(folder_ / "missing"));
}

TEST_F(LogOutputTest, WaitsForNobodyToReadAFifo) {
    ASSERT_EQ(mkfifo(file_.c_str(), S_IRUSR | S_IWUSR), 0);
    EXPECT_EQ(append("text"), std::nullopt);
}

TEST_F(LogOutputTest, NoProgramInheritsTheFile) {
    NEEDS_PROC();
    std::atomic<bool> found = false;
    std::thread writer([&] {
        const std::string text(1 << 20, 'x');
        while (!found) {
            fs::remove(file_);
            append(text);
        }
    });
    std::optional<int> flags;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!flags && std::chrono::steady_clock::now() < limit)
        flags = FlagsOfOpenFile(file_);
    found = true;
    writer.join();
    EXPECT_NE(flags.value_or(0) & O_CLOEXEC, 0);
}

TEST_F(LogOutputTest, KeepsWholeLinesOfATextThatDoesNotFit) {
    append("one\n");
    {
        const fake::FileSizeLimit limit(10);
        EXPECT_THAT(append("two\nthree\nfour\n"), Optional(4U));
        EXPECT_EQ(content(), "one\ntwo\n");
        EXPECT_THAT(append("long line"), Optional(0U));
        EXPECT_EQ(content(), "one\ntwo\n");
        EXPECT_THAT(append("2\n"), Optional(2U));
        EXPECT_THAT(append("3\n"), Optional(0U));
    }
    EXPECT_THAT(append("last\n"), Optional(5U));
    EXPECT_EQ(content(), "one\ntwo\n2\nlast\n");
}

}  // namespace
