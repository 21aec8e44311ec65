#include <sys/fsuid.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <stop_token>
#include <string>

#include "SealedFiles.h"
#include "support/FileSizeLimit.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

// The outcome and what the log says of it.
class UnsealFailuresTest : public fake::SealedFileFixture {
 protected:
    std::string refusal(const std::string& path, UnsealStatus expected) {
        fake::LogCapture log(LogLevel::Info);
        EXPECT_EQ(Unseal(path, FileUser()), expected);
        const auto lines = log.linesWith("[ WARN]");
        EXPECT_THAT(lines, SizeIs(1));
        const auto reason = lines.empty() ? std::string::npos : lines[0].rfind(" -- ");
        return reason == std::string::npos ? "no line" : lines[0].substr(reason + 4);
    }
    // With these rights, as a user who may not write everywhere.
    void expectRefusal(fs::perms ofFolder) {
        fs::permissions(folder_.path(), ofFolder);
        fs::permissions(file_, fs::perms(0444));
        // Root may write everywhere: this thread is another user as far as files go.
        const bool isRoot = geteuid() == 0;
        if (isRoot) {
            setfsuid(12'345);
        }
        EXPECT_EQ(refusal(file_, UnsealStatus::unwritable), "Permission denied");
        if (isRoot) {
            setfsuid(0);
        }
        EXPECT_EQ(content(), sealed_);
        EXPECT_THAT(names(), ElementsAre("file.txt"));
        fs::permissions(folder_.path(), fs::perms(0700));
    }
};

TEST_F(UnsealFailuresTest, WhatCannotBeReadIsUnreadable) {
    ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(refusal(folder_ / "missing", UnsealStatus::unreadable), "No such file or directory");
    EXPECT_EQ(refusal("", UnsealStatus::unreadable), "No such file or directory");
    EXPECT_EQ(refusal(folder_.path(), UnsealStatus::unreadable), "Not a regular file");
    EXPECT_EQ(refusal(folder_ / "fifo", UnsealStatus::unreadable), "Not a regular file");
    EXPECT_EQ(refusal(file_ / "below", UnsealStatus::unreadable), "Not a directory");
    EXPECT_EQ(refusal(file_.string() + '\0', UnsealStatus::unreadable), "The path holds a NUL character");
    EXPECT_EQ(refusal("/proc/self/mem", UnsealStatus::unreadable), "Input/output error");
    EXPECT_EQ(content(), sealed_);
}

TEST_F(UnsealFailuresTest, AFileWithoutAPlaceIsUnwritable) {
    const int descriptor = memfd_create("sealed", MFD_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(write(descriptor, sealed_.data(), sealed_.size()), static_cast<ssize_t>(sealed_.size()));
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    EXPECT_TRUE(IsSealed(path, FileUser()));
    EXPECT_EQ(refusal(path, UnsealStatus::unwritable), "No such file or directory");
    EXPECT_EQ(cmn::FileToStr(path), sealed_);
    close(descriptor);
}

TEST_F(UnsealFailuresTest, AFolderThatTakesNoFileLeavesTheFileAsItWas) {
    expectRefusal(fs::perms(0555));
}

TEST_F(UnsealFailuresTest, AFileThatMayNotBeWrittenStaysAsItWas) {
    expectRefusal(fs::perms(0777));
}

TEST_F(UnsealFailuresTest, RelativePathsAreRefused) {
    const fs::path before = fs::current_path();
    fs::current_path(folder_.path());
    for (const auto* path : {"file.txt", "./file.txt", "missing"}) {
        EXPECT_EQ(refusal(path, UnsealStatus::unreadable), "Not an absolute path") << path;
    }
    fs::current_path(before);
    EXPECT_EQ(content(), sealed_);
}

TEST_F(UnsealFailuresTest, AFileLargerThanTheLimitIsLeftAsItIs) {
    // The file is a hole behind its line.
    ASSERT_EQ(truncate(file_.c_str(), kLargestSealedFile + 1), 0);
    EXPECT_EQ(refusal(file_, UnsealStatus::unwritable), "Larger than 1073741824 bytes");
    EXPECT_EQ(fs::file_size(file_), static_cast<std::uintmax_t>(kLargestSealedFile + 1));
    EXPECT_TRUE(IsSealed(file_, FileUser()));
    EXPECT_THAT(names(), ElementsAre("file.txt"));
}

TEST_F(UnsealFailuresTest, AStoppedUnsealingLeavesTheFileAsItWas) {
    std::stop_source stop;
    stop.request_stop();
    fake::LogCapture log(LogLevel::Info);
    EXPECT_EQ(Unseal(file_, FileUser(), stop.get_token()), UnsealStatus::unwritable);
    EXPECT_THAT(log.lines(), ElementsAre(EndsWith(" -- The host ends")));
    EXPECT_EQ(content(), sealed_);
    EXPECT_THAT(names(), ElementsAre("file.txt"));
}

TEST_F(UnsealFailuresTest, AFolderThatAnotherOneReplacesMeanwhileIsTheOneThatIsWrittenTo) {
    const fs::path place = folder_ / "place";
    fs::create_directory(place);
    fs::rename(file_, place / "file");
    EXPECT_EQ(UnsealWith(place / "file", FileUser(),
                         [&] {
                             fs::rename(place, folder_ / "moved");
                             fs::create_directory(place);
                             cmn::StrToFile(sealed_ + "other", place / "file");
                         }),
              UnsealStatus::unsealed);
    EXPECT_EQ(cmn::FileToStr(folder_ / "moved" / "file"), content_);
    EXPECT_EQ(cmn::FileToStr(place / "file"), sealed_ + "other");
    for (const auto* folder : {"moved", "place"}) {
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_ / folder), fs::directory_iterator()), 1)
            << folder;
    }
}

TEST_F(UnsealFailuresTest, AFullDiskLeavesTheFileAsItWas) {
    const std::string large(1'000'000, 'x');
    seal(large);
    // Full in the middle, and just before the end.
    for (const std::size_t bytes : {large.size() / 2, large.size() - 10}) {
        const auto reason = [&] {
            const fake::FileSizeLimit limit(bytes);
            return refusal(file_, UnsealStatus::unwritable);
        }();
        EXPECT_EQ(reason, "File too large");
        EXPECT_EQ(content(), std::string(kSealLine) + large);
        EXPECT_THAT(names(), ElementsAre("file.txt"));
    }
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), large);
}

TEST_F(UnsealFailuresTest, AnEndBeforeTheReplacementLeavesTheFileAndATemporaryOneAtMost) {
    ASSERT_EQ(chmod(file_.c_str(), 0640), 0);
    int calls = 0;
    UnsealWith(file_, FileUser(), [&] {
        ++calls;
        EXPECT_EQ(content(), sealed_);
        ASSERT_THAT(names(), SizeIs(2));
        for (const auto& name : names()) {
            struct stat status {};
            ASSERT_EQ(stat((folder_ / name).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777U, 0640U);
            EXPECT_EQ(cmn::FileToStr(folder_ / name), name == "file.txt" ? sealed_ : content_);
        }
    });
    EXPECT_EQ(calls, 1);
}

TEST_F(UnsealFailuresTest, AnotherThatUnsealsItMeanwhileWins) {
    auto inner = UnsealStatus::unreadable;
    EXPECT_EQ(UnsealWith(file_, FileUser(), [&] { inner = Unseal(file_, FileUser()); }),
              UnsealStatus::notSealed);
    EXPECT_EQ(inner, UnsealStatus::unsealed);
    EXPECT_EQ(content(), content_);
    EXPECT_THAT(names(), ElementsAre("file.txt"));
}

TEST_F(UnsealFailuresTest, WhatIsSavedMeanwhileIsNotLost) {
    int saves = 0;
    EXPECT_EQ(UnsealWith(file_, FileUser(),
                         [&] {
                             if (++saves == 1) {
                                 seal("saved in place");
                             }
                         }),
              UnsealStatus::unsealed);
    EXPECT_EQ(saves, 2);
    EXPECT_EQ(content(), "saved in place");
}

TEST_F(UnsealFailuresTest, AFileThatReplacesItMeanwhileIsNotLost) {
    EXPECT_EQ(UnsealWith(file_, FileUser(),
                         [&] {
                             cmn::StrToFile("new file", folder_ / "new");
                             fs::rename(folder_ / "new", file_);
                         }),
              UnsealStatus::notSealed);
    EXPECT_EQ(content(), "new file");
    EXPECT_THAT(names(), ElementsAre("file.txt"));
}

TEST_F(UnsealFailuresTest, AFileThatIsRemovedMeanwhileDoesNotComeBack) {
    EXPECT_EQ(UnsealWith(file_, FileUser(), [&] { fs::remove(file_); }), UnsealStatus::unreadable);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(UnsealFailuresTest, AFileThatChangesAllTheTimeIsUnwritable) {
    std::string saved;
    fake::LogCapture log(LogLevel::Info);
    EXPECT_EQ(UnsealWith(file_, FileUser(), [&] { seal(saved += "more "); }), UnsealStatus::unwritable);
    EXPECT_THAT(log.lines(), ElementsAre(EndsWith(" -- Cannot unseal " + file_.string() +
                                                  " -- Others change it all the time")));
    EXPECT_EQ(content(), std::string(kSealLine) + saved);
    EXPECT_THAT(names(), ElementsAre("file.txt"));
}

}  // namespace
}  // namespace host
