#include <gtest/gtest.h>

#include <filesystem>

#include "common/LogFile.h"
#include "common/SystemUtils.h"
#include "common/fs.h"

namespace {

namespace fs = std::filesystem;

class LogFolderTest : public testing::Test {
 protected:
    LogFolderTest() { fs::remove_all(folder_); }
    ~LogFolderTest() override { fs::remove_all(folder_); }

    const fs::path folder_ = fs::path(cmn::GetSharedPath()) / "Log";
};

TEST_F(LogFolderTest, IsMadeInTheSharedFolderEachTimeItIsAskedFor) {
    EXPECT_EQ(cmn::GetLogPath(), folder_);
    EXPECT_TRUE(fs::is_directory(folder_));
    fs::remove(folder_);
    EXPECT_EQ(cmn::GetLogPath(), folder_);
    EXPECT_TRUE(fs::is_directory(folder_));
}

TEST_F(LogFolderTest, KeepsWhatItHolds) {
    cmn::StrToFile("text", cmn::GetLogPath() / "file");
    cmn::GetLogPath();
    EXPECT_EQ(cmn::FileToStr(folder_ / "file"), "text");
}

TEST_F(LogFolderTest, FailureToMakeItIsTheFileSystemsException) {
    cmn::StrToFile("", folder_);
    EXPECT_THROW(cmn::GetLogPath(), fs::filesystem_error);
}

}  // namespace
