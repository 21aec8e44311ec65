#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Failures.h"
#include "OwnProcess.h"
#include "common/SystemUtils.h"
#include "common/crc64.h"
#include "common/fs.h"
#include "support/LogCapture.h"
#include "support/NeedsProc.h"

namespace {

namespace fs = std::filesystem;
using fake::FailureOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FilesTest : public testing::Test {
 protected:
    const fake::TemporaryFolder folder_;
    const fs::path file_ = folder_ / "file";
    const fs::path missing_ = folder_ / "missing" / "file";
};

// All bytes there are, among them line ends and NUL, more than one piece of reading long.
std::string AllBytes() {
    std::string text;
    for (int i = 0; i < 100'000; ++i)
        text += static_cast<char>(i * 7);
    return text + "\r\n\n";
}

TEST_F(FilesTest, WritesAndReadsTextUnchanged) {
    cmn::StrToFile(AllBytes(), file_);
    EXPECT_EQ(cmn::FileToStr(file_), AllBytes());
    cmn::StrToFile("", file_);
    EXPECT_EQ(cmn::FileToStr(file_), "");
}

TEST_F(FilesTest, WritesAndReadsBytesUnchanged) {
    const auto text = AllBytes();
    cmn::BinToFile(text.data(), text.size(), file_);
    const std::vector<unsigned char> expected(text.begin(), text.end());
    EXPECT_EQ(cmn::FileToBin(file_), expected);
    std::vector<unsigned char> bytes(1'000'000, 1);
    cmn::FileToBin(file_, bytes);
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(cmn::FileToStr(file_), text);
}

TEST_F(FilesTest, WritingReplacesALongerFile) {
    cmn::StrToFile("a long text", file_);
    cmn::BinToFile("ab", 2, file_);
    EXPECT_EQ(cmn::FileToStr(file_), "ab");
    cmn::BinToFile(nullptr, 0, file_);
    EXPECT_THAT(cmn::FileToBin(file_), IsEmpty());
}

TEST_F(FilesTest, WritesAStream) {
    const std::string text(3'000'000, 'x');
    const auto stream = cmn::BinToStream(std::vector<unsigned char>(text.begin(), text.end()));
    cmn::StreamToFile(*stream, file_);
    EXPECT_EQ(cmn::FileToStr(file_), text);
    cmn::MemStream empty;
    cmn::StreamToFile(empty, file_);
    EXPECT_EQ(cmn::FileToStr(file_), "");
}

TEST_F(FilesTest, ReadsFilesThatTellNoSize) {
    NEEDS_PROC();
    EXPECT_THAT(cmn::FileToStr("/proc/self/status"), HasSubstr("Pid:"));
}

TEST_F(FilesTest, ReportsFilesThatCannotBeReadOrWritten) {
    const std::string noFile = " (" + missing_.string() + ") Error: " + std::strerror(ENOENT);
    cmn::MemStream stream;
    std::vector<unsigned char> bytes;
    EXPECT_EQ(FailureOf([&] { cmn::FileToStr(missing_); }), "[FileToStr] Can't read" + noFile);
    EXPECT_EQ(FailureOf([&] { cmn::FileToBin(missing_); }), "[FileToBin] Can't read" + noFile);
    EXPECT_EQ(FailureOf([&] { cmn::FileToBin(missing_, bytes); }), "[FileToBin] Can't read" + noFile);
    EXPECT_EQ(FailureOf([&] { cmn::StrToFile("", missing_); }), "[StrToFile] Can't write" + noFile);
    EXPECT_EQ(FailureOf([&] { cmn::BinToFile("", 0, missing_); }), "[BinToFile] Can't write" + noFile);
    EXPECT_EQ(FailureOf([&] { cmn::StreamToFile(stream, missing_); }), "[StreamToFile] Can't write" + noFile);
    EXPECT_THROW(cmn::FileToStr(missing_), std::runtime_error);
    EXPECT_THROW(cmn::FileToStr(folder_.path()), std::runtime_error);
}

TEST_F(FilesTest, ReportsAFullDisk) {
    const std::string full = " (/dev/full) Error: " + std::string(std::strerror(ENOSPC));
    EXPECT_EQ(FailureOf([&] { cmn::StrToFile("x", "/dev/full"); }), "[StrToFile] Can't write" + full);
    const auto stream = cmn::BinToStream({'x'});
    EXPECT_EQ(FailureOf([&] { cmn::StreamToFile(*stream, "/dev/full"); }),
              "[StreamToFile] Can't write" + full);
    const std::string large(1 << 20, 'x');
    EXPECT_EQ(FailureOf([&] { cmn::BinToFile(large.data(), large.size(), "/dev/full"); }),
              "[BinToFile] Can't write" + full);
}

TEST_F(FilesTest, ReadsTheWordsOfAFile) {
    cmn::StrToFile("  one two\n\tthree\r\n\n four\vfive\f", file_);
    EXPECT_THAT(cmn::ReadWordsFromFile(file_), ElementsAre("one", "two", "three", "four", "five"));
    cmn::StrToFile(" \n ", file_);
    EXPECT_THAT(cmn::ReadWordsFromFile(file_), IsEmpty());
}

TEST_F(FilesTest, ReportsAFileOfWordsThatCannotBeOpened) {
    EXPECT_EQ(FailureOf([&] { cmn::ReadWordsFromFile(missing_); }),
              "[ReadWordsFromFile] Can't read (" + missing_.string() + ") Error: " + std::strerror(ENOENT));
    EXPECT_THROW(cmn::ReadWordsFromFile(missing_), std::runtime_error);
}

std::string Replaced(std::string text, const std::map<std::string, std::string>& values) {
    cmn::ReplaceTemplates(text, values);
    return text;
}

TEST(ReplaceTemplatesTest, ReplacesEveryOccurrenceOfEveryKey) {
    EXPECT_EQ(Replaced("${A} ${B} ${A}${A}", {{"${A}", "1"}, {"${B}", "two"}}), "1 two 11");
    EXPECT_EQ(Replaced("nothing here", {{"${A}", "1"}}), "nothing here");
    EXPECT_EQ(Replaced("${A}", {}), "${A}");
    EXPECT_EQ(Replaced("", {{"${A}", "1"}}), "");
    EXPECT_EQ(Replaced("a${A}b", {{"${A}", ""}}), "ab");
}

TEST(ReplaceTemplatesTest, DoesNotReplaceWithinWhatItInserted) {
    EXPECT_EQ(Replaced("x", {{"x", "xx"}}), "xx");
    EXPECT_EQ(Replaced("aaa", {{"aa", "a"}}), "aa");
}

TEST(ReplaceTemplatesTest, PassesOverAnEmptyKey) {
    EXPECT_EQ(Replaced("abc", {{"", "x"}, {"b", "y"}}), "ayc");
}

TEST_F(FilesTest, ReplacesTemplatesInAFile) {
    cmn::StrToFile("{\"key\": \"${A}\"}\r\n", file_);
    cmn::ReplaceTemplates(file_, {{"${A}", "value"}});
    EXPECT_EQ(cmn::FileToStr(file_), "{\"key\": \"value\"}\r\n");
    EXPECT_THROW(cmn::ReplaceTemplates(missing_, {{"${A}", "value"}}), std::runtime_error);
}

TEST_F(FilesTest, SizeOfAFileIsItsLength) {
    cmn::StrToFile("12345", file_);
    EXPECT_EQ(cmn::FileSizeNoThrow(file_), 5U);
}

TEST_F(FilesTest, SizeIsZeroOnAnyError) {
    EXPECT_EQ(cmn::FileSizeNoThrow(missing_), 0U);
    EXPECT_EQ(cmn::FileSizeNoThrow(""), 0U);
    EXPECT_EQ(cmn::FileSizeNoThrow(folder_.path()), 0U);
    cmn::StrToFile("", file_);
    EXPECT_EQ(cmn::FileSizeNoThrow(file_ / "below a file"), 0U);
    EXPECT_EQ(cmn::FileSizeNoThrow(std::string(10'000, 'a')), 0U);
}

TEST_F(FilesTest, WriteTimeIsTheFilesOrTheSmallest) {
    cmn::StrToFile("", file_);
    const auto time = fs::file_time_type::clock::now() - std::chrono::hours(5);
    fs::last_write_time(file_, time);
    EXPECT_EQ(cmn::FileLastWriteTimeNoThrow(file_), fs::last_write_time(file_));
    EXPECT_LT(cmn::FileLastWriteTimeNoThrow(file_), fs::file_time_type::clock::now() - std::chrono::hours(4));
    EXPECT_EQ(cmn::FileLastWriteTimeNoThrow(missing_), fs::file_time_type::min());
}

TEST_F(FilesTest, TruncatesByDescriptorAndByStream) {
    cmn::StrToFile("12345", file_);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(file_.c_str(), "r+"), std::fclose);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(cmn::FileTruncate(file.get(), 3), 0);
    EXPECT_EQ(cmn::FileToStr(file_), "123");
    EXPECT_EQ(cmn::FileTruncate(fileno(file.get()), 4), 0);
    EXPECT_EQ(cmn::FileToStr(file_), std::string("123\0", 4));
    EXPECT_EQ(cmn::FileTruncate(-1, 0), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FilesTest, FileHashIsTheChecksumOfTheBytes) {
    cmn::StrToFile("123456789", file_);
    EXPECT_EQ(cmn::CalcFileHash(0, file_), 0xE9C6D914C4B8D9CAU);
    EXPECT_EQ(cmn::CalcFileHash(5, file_),
              cmn::crc64(5, reinterpret_cast<const unsigned char*>("123456789"), 9));
    EXPECT_THROW(cmn::CalcFileHash(0, missing_), std::runtime_error);
}

TEST_F(FilesTest, FileHashOfAnEmptyFileIsZeroWhateverTheSeed) {
    cmn::StrToFile("", file_);
    EXPECT_EQ(cmn::CalcFileHash(0, file_), 0U);
    EXPECT_EQ(cmn::CalcFileHash(12'345, file_), 0U);
}

TEST_F(FilesTest, FileHashIsTheSameOverManyPieces) {
    std::string text;
    for (int i = 0; i < 30; ++i)
        text += AllBytes();
    cmn::StrToFile(text, file_);
    EXPECT_EQ(cmn::CalcFileHash(7, file_),
              cmn::crc64(7, reinterpret_cast<const unsigned char*>(text.data()), text.size()));
    text.resize(2 << 20);
    cmn::StrToFile(text, file_);
    EXPECT_EQ(cmn::CalcFileHash(7, file_),
              cmn::crc64(7, reinterpret_cast<const unsigned char*>(text.data()), text.size()));
}

TEST_F(FilesTest, ReportsAFileThatCannotBeHashed) {
    EXPECT_EQ(FailureOf([&] { cmn::CalcFileHash(0, missing_); }),
              "[CalcFileHash] Can't read (" + missing_.string() + ") Error: " + std::strerror(ENOENT));
    EXPECT_EQ(FailureOf([&] { cmn::CalcFileHash(0, folder_.path()); }),
              "[CalcFileHash] Can't read (" + folder_.path().string() + ") Error: " + std::strerror(EISDIR));
}

constexpr long kLargeFile = 128;  // mebibytes

// How many mebibytes of memory `use` takes at its height, without the pages of its code.
long MemoryOf(
    const std::function<void()>& use, const std::function<void()>& inSmall = [] {}) {
    const auto highest = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    return std::stol(fake::AnswerInChild([&] {
        inSmall();
        const auto before = highest();
        use();
        return std::to_string((highest() - before) / 1024);
    }));
}

TEST_F(FilesTest, HashingALargeFileTakesLittleMemory) {
    cmn::StrToFile("", file_);
    fs::resize_file(file_, kLargeFile << 20);
    const fs::path small = file_.string() + ".small";
    cmn::StrToFile(std::string(1024, 'a'), small);
    EXPECT_LT(MemoryOf([&] { cmn::CalcFileHash(1, file_); }, [&] { cmn::CalcFileHash(1, small); }), 2);
}

TEST_F(FilesTest, ReadingALargeFileTakesMemoryForItOnce) {
    cmn::StrToFile("", file_);
    fs::resize_file(file_, kLargeFile << 20);
    const auto used = MemoryOf([&] {
        if (cmn::FileToBin(file_).size() != kLargeFile << 20)
            throw std::runtime_error("not the whole file");
    });
    EXPECT_GE(used, kLargeFile);
    EXPECT_LT(used, kLargeFile * 3 / 2);
}

TEST_F(FilesTest, ReadsFilesThatHoldMoreOrLessThanTheirSize) {
    NEEDS_PROC();
    // Those of the kernel tell a size of 0 or of a page, whatever they hold.
    EXPECT_EQ(cmn::FileSizeNoThrow("/proc/cpuinfo"), 0U);
    EXPECT_THAT(cmn::FileToBin("/proc/cpuinfo"), testing::Not(IsEmpty()));
    const fs::path page = "/sys/devices/system/cpu/online";
    EXPECT_LT(cmn::FileToStr(page).size(), cmn::FileSizeNoThrow(page));
}

TEST(CalcPathHashTest, IsTheChecksumOfThePathsText) {
    EXPECT_EQ(cmn::CalcPathHash("123456789"), 0xE9C6D914C4B8D9CAU);
    EXPECT_EQ(cmn::CalcPathHash(""), 0U);
    EXPECT_NE(cmn::CalcPathHash("/a/b"), cmn::CalcPathHash("/a/B"));
    const std::string umlaut = "/\u00e4";
    EXPECT_EQ(cmn::CalcPathHash(umlaut),
              cmn::crc64(0, reinterpret_cast<const unsigned char*>(umlaut.data()), umlaut.size()));
}

TEST(IsFileInDirTest, ComparesTheLeadingCharacters) {
    EXPECT_TRUE(cmn::IsFileInDir("/a/b/file", "/a/b"));
    EXPECT_TRUE(cmn::IsFileInDir("/a/b/file", "/a/b/"));
    EXPECT_TRUE(cmn::IsFileInDir("/a/b", "/a/b"));
    EXPECT_FALSE(cmn::IsFileInDir("/a/b", "/a/b/"));
    EXPECT_FALSE(cmn::IsFileInDir("/a/file", "/a/b"));
    EXPECT_FALSE(cmn::IsFileInDir("/x/a/b/file", "/a/b"));
    EXPECT_FALSE(cmn::IsFileInDir("/A/b/file", "/a/b"));
    EXPECT_TRUE(cmn::IsFileInDir("/a", ""));
}

TEST(IsFileInDirTest, TakesAFolderForTheBeginningOfALongerName) {
    EXPECT_TRUE(cmn::IsFileInDir("/a/bc/file", "/a/b"));
}

TEST(IsFileInDirTest, ComparesTextBeyondAscii) {
    EXPECT_TRUE(cmn::IsFileInDir("/\u00e4\u4e2d/file", "/\u00e4"));
    EXPECT_TRUE(cmn::IsFileInDir(u8"/\u00e4/file", "/\u00e4"));
    EXPECT_FALSE(cmn::IsFileInDir("/\u00e5/file", "/\u00e4"));
    EXPECT_FALSE(cmn::IsFileInDir("/a\u0308/file", "/\u00e4"));
    // No text at all in any encoding, but a file name.
    EXPECT_TRUE(cmn::IsFileInDir("/\xFF\xFE/file", "/\xFF"));
}

TEST(IsFileInDirsTest, HoldsWhenAnyFolderHolds) {
    EXPECT_TRUE(cmn::IsFileInDirs("/a/b", {"/x", "/a"}));
    EXPECT_FALSE(cmn::IsFileInDirs("/a/b", {"/x", "/y"}));
    EXPECT_FALSE(cmn::IsFileInDirs("/a/b", {}));
}

}  // namespace
