#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/interprocess/exceptions.hpp>
#include <boost/interprocess/sync/file_lock.hpp>
#include <fstream>
#include <string>

#include "OtherProcess.h"
#include "SettingsFiles.h"

// A settings file that is open, and its lock.

namespace cmn::proto {
namespace {

namespace fs = std::filesystem;
using boost::interprocess::interprocess_exception;
using fake::AnotherProcessCanLock;
using fake::OtherProcess;

using LockedFileTest = SettingsFileTest;

TEST_F(LockedFileTest, ExcludesOtherProcessesAndOtherOpeningsInThisOne) {
    auto file = OpenLockedFile(file_, LockedFile::Opening::kept);
    EXPECT_TRUE(AnotherProcessCanLock(file_));
    EXPECT_TRUE(file->tryLock());
    EXPECT_FALSE(AnotherProcessCanLock(file_));
    EXPECT_FALSE(OpenLockedFile(file_, LockedFile::Opening::existing)->tryLock());
    EXPECT_FALSE(boost::interprocess::file_lock(file_.c_str()).try_lock());
    file.reset();
    EXPECT_TRUE(AnotherProcessCanLock(file_));
}

TEST_F(LockedFileTest, IsExcludedByAnotherProcess) {
    OtherProcess other(file_);
    const auto file = OpenLockedFile(file_, LockedFile::Opening::existing);
    EXPECT_FALSE(file->tryLock());
    other.letGo();
    EXPECT_TRUE(file->tryLock());
}

TEST_F(LockedFileTest, KeepsItsLockWhateverElseThisProcessOpensAndCloses) {
    const auto file = OpenLockedFile(file_, LockedFile::Opening::kept);
    ASSERT_TRUE(file->tryLock());
    file->replace("{}");
    LoadSettings(file_);
    std::ifstream(file_).get();
    OpenLockedFile(file_, LockedFile::Opening::existing).reset();
    EXPECT_FALSE(AnotherProcessCanLock(file_));
}

TEST_F(LockedFileTest, GivesTheLockUpAlthoughAChildProcessHasACopyOfTheDescriptor) {
    auto file = OpenLockedFile(file_, LockedFile::Opening::kept);
    ASSERT_TRUE(file->tryLock());
    std::array<int, 2> end{};
    ASSERT_EQ(pipe(end.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        char byte = 0;
        close(end[1]);
        _exit(read(end[0], &byte, 1) == 0 ? 0 : 1);
    }
    file.reset();
    EXPECT_TRUE(AnotherProcessCanLock(file_));
    close(end[1]);
    close(end[0]);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(LockedFileTest, IsMadeKeptOrEmptiedAsItIsOpened) {
    EXPECT_THROW(OpenLockedFile(file_, LockedFile::Opening::existing), interprocess_exception);
    EXPECT_FALSE(fs::exists(file_));
    OpenLockedFile(file_, LockedFile::Opening::kept);
    EXPECT_TRUE(fs::exists(file_));
    StrToFile("text", file_);
    OpenLockedFile(file_, LockedFile::Opening::existing);
    OpenLockedFile(file_, LockedFile::Opening::kept);
    EXPECT_EQ(content(), "text");
    OpenLockedFile(file_, LockedFile::Opening::emptied);
    EXPECT_EQ(content(), "");
    fs::remove(file_);
    OpenLockedFile(file_, LockedFile::Opening::emptied);
    EXPECT_TRUE(fs::exists(file_));
}

TEST_F(LockedFileTest, KnowsWhetherThePathLeadsToItStill) {
    const auto file = OpenLockedFile(file_, LockedFile::Opening::kept);
    fs::create_symlink(file_, folder_ / "link");
    EXPECT_TRUE(file->isAt(file_));
    EXPECT_TRUE(file->isAt(folder_ / "link"));
    fs::rename(file_, folder_ / "elsewhere");
    EXPECT_FALSE(file->isAt(file_));
    StrToFile("", file_);
    EXPECT_FALSE(file->isAt(file_));
    EXPECT_TRUE(file->isAt(folder_ / "elsewhere"));
}

TEST_F(LockedFileTest, ReplacesAndReadsTheWholeContent) {
    const auto file = OpenLockedFile(file_, LockedFile::Opening::kept);
    for (const auto size : {100'000U, 4'096U, 4'095U, 1U, 0U}) {
        const std::string text(size, 'x');
        file->replace(text);
        EXPECT_EQ(content(), text);
        EXPECT_EQ(file->read(100'000), text);
    }
}

}  // namespace
}  // namespace cmn::proto
