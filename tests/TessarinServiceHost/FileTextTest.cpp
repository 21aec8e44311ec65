#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <string>

#include "Common/Failures.h"
#include "CutPosition.h"
#include "FileText.h"
#include "SealedFile.h"
#include "common/fs.h"
#include "support/LogCapture.h"
#include "support/NeedsProc.h"

namespace host {
namespace {

using fake::FailureOf;
using testing::StartsWith;

const std::string kEuro = "\xE2\x82\xAC";
const std::string kClef = "\xF0\x9D\x84\x9E";

// Without other limits.
FileText Read(const std::string& path, std::size_t limit) {
    ScanBounds bounds({.time = std::chrono::hours(1)});
    return ReadFileText(path, FileUser(), limit, bounds);
}

class FileTextTest : public testing::Test {
 protected:
    FileText read(const std::string& content, std::size_t limit) const {
        cmn::StrToFile(content, file_);
        return Read(file_, limit);
    }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "file";
};

TEST_F(FileTextTest, ReadsUpToTheLimit) {
    for (const std::size_t limit : {0U, 1U, 27U, 28U, 29U, 99U}) {
        const auto file = read(std::string(100, 'a'), limit);
        EXPECT_EQ(file.text, std::string(limit, 'a'));
        EXPECT_TRUE(file.isCut) << limit;
    }
    for (const std::size_t limit :
         {std::size_t{100}, std::size_t{101}, std::numeric_limits<std::size_t>::max()}) {
        const auto file = read(std::string(100, 'a'), limit);
        EXPECT_EQ(file.text, std::string(100, 'a'));
        EXPECT_FALSE(file.isCut) << limit;
    }
}

TEST_F(FileTextTest, ReadsMoreThanOnePiece) {
    std::string content;
    while (content.size() < 300'000) {
        content += std::to_string(content.size()) + "\n";
    }
    EXPECT_EQ(read(content, content.size()).text, content);
    EXPECT_EQ(read(content, 200'000).text, content.substr(0, 200'000));
}

TEST_F(FileTextTest, CutsBeforeACharacterThatWouldBeCutInTwo) {
    EXPECT_EQ(read("a" + kEuro + "b", 2).text, "a");
    EXPECT_EQ(read("a" + kEuro + "b", 3).text, "a");
    EXPECT_EQ(read("a" + kEuro + "b", 4).text, "a" + kEuro);
    EXPECT_EQ(read("a" + kEuro, 4).text, "a" + kEuro);
}

TEST_F(FileTextTest, LeavesOutTheLineOfASealedFile) {
    const std::string line(kSealLine);
    EXPECT_EQ(read(line + "content", 100).text, "content");
    EXPECT_EQ(read(line, 100).text, "");
    EXPECT_EQ(read(line + line + "content", 100).text, line + "content");
    EXPECT_EQ(read(line + "content", 7).text, "content");
    EXPECT_FALSE(read(line + "content", 7).isCut);
    EXPECT_EQ(read(line + "content", 6).text, "conten");
    EXPECT_TRUE(read(line + "content", 6).isCut);
}

TEST_F(FileTextTest, KeepsWhatOnlyLooksLikeTheLineOfASealedFile) {
    for (const auto* content :
         {"TESSARIN HOST SEALED FILE 1", "TESSARIN HOST SEALED FILE 1\r\n", "TESSARIN HOST SEALED FILE 2\n",
          "tessarin host sealed file 1\n", "\nTESSARIN HOST SEALED FILE 1\n"}) {
        EXPECT_EQ(read(content, 100).text, content);
    }
}

TEST_F(FileTextTest, TellsWhenTheFileWasChanged) {
    cmn::StrToFile("content", file_);
    const timespec times[] = {{.tv_sec = 5, .tv_nsec = 6}, {.tv_sec = 1'700'000'000, .tv_nsec = 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
    const auto file = Read(file_, 100);
    EXPECT_EQ(file.modified.tv_sec, 1'700'000'000);
    EXPECT_EQ(file.modified.tv_nsec, 123'456'789);
}

TEST_F(FileTextTest, ReadsFilesThatClaimToBeEmptyToTheirEnd) {
    NEEDS_PROC();
    struct stat status {};
    ASSERT_EQ(stat("/proc/self/status", &status), 0);
    ASSERT_EQ(status.st_size, 0);
    EXPECT_THAT(Read("/proc/self/status", 100'000).text, StartsWith("Name:"));
}

TEST_F(FileTextTest, FollowsSymbolicLinks) {
    cmn::StrToFile("content", file_);
    std::filesystem::create_symlink("file", folder_ / "link");
    EXPECT_EQ(Read(folder_ / "link", 100).text, "content");
}

TEST_F(FileTextTest, RefusesWhatIsNoRegularFileWithoutWaiting) {
    ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
    for (const std::string& path :
         {(folder_ / "fifo").string(), folder_.path().string(), std::string("/dev/zero")}) {
        EXPECT_EQ(FailureOf([&] { Read(path, 100); }), "Not a regular file") << path;
    }
}

TEST_F(FileTextTest, EndsWithWhatItHasReadWhenTheTimeIsOver) {
    cmn::StrToFile(std::string(500'000, 'a'), file_);
    // Each question for the time takes a millisecond; one comes before each piece of 65,536 bytes.
    ScanBounds bounds({.time = std::chrono::milliseconds(4)},
                      [time = std::chrono::steady_clock::time_point()]() mutable {
                          return time += std::chrono::milliseconds(1);
                      });
    EXPECT_EQ(ReadFileText(file_, FileUser(), 1'000'000, bounds).text,
              std::string(kSealLine.size() + 3 * std::size_t{65'536}, 'a'));
    EXPECT_STREQ(bounds.reason(), "It took too long");
}

TEST_F(FileTextTest, NamesTheReasonWhenItCannotRead) {
    NEEDS_PROC();
    const auto failure = [](const std::string& path) { return FailureOf([&] { Read(path, 100); }); };
    cmn::StrToFile("content", file_);
    std::filesystem::create_symlink("loop", folder_ / "loop");
    EXPECT_EQ(failure(folder_ / "missing"), "No such file or directory");
    EXPECT_EQ(failure(file_ / "below"), "Not a directory");
    EXPECT_EQ(failure(folder_ / "loop"), "Too many levels of symbolic links");
    EXPECT_EQ(failure(""), "No such file or directory");
    EXPECT_EQ(failure(std::string(1'000'000, 'x')), "File name too long");
    EXPECT_EQ(failure(file_.string() + '\0'), "The path holds a NUL character");
    // Opens, but has nothing at its beginning.
    EXPECT_EQ(failure("/proc/self/mem"), "Input/output error");
}

TEST(CutPositionTest, IsNeverInsideACharacter) {
    EXPECT_EQ(CutPosition("abc", 2), 2U);
    for (const std::size_t limit : {1U, 2U, 3U}) {
        EXPECT_EQ(CutPosition("a" + kClef, 1 + limit), 1U);
    }
    EXPECT_EQ(CutPosition("a" + kClef + "b", 5), 5U);
    EXPECT_EQ(CutPosition(kEuro, 1), 0U);
    EXPECT_EQ(CutPosition(kEuro, 0), 0U);
}

TEST(CutPositionTest, IsTheLimitWhereTheTextIsNoUtf8) {
    EXPECT_EQ(CutPosition("\x80\x80\x80\x80\x80\x80", 5), 5U);
    EXPECT_EQ(CutPosition("\x80\x80", 1), 1U);
    EXPECT_EQ(CutPosition("ab\x80", 2), 2U);
    EXPECT_EQ(CutPosition("\xF0\x80\x80\x80\x80\x80", 5), 5U);
}

}  // namespace
}  // namespace host
