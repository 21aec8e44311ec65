#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <string>

#include "SealedFile.h"
#include "SealedFiles.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::UnorderedElementsAre;

using SealedFileTest = fake::SealedFileFixture;

struct stat StatusOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

TEST_F(SealedFileTest, IsRecognisedByItsFirstLine) {
    EXPECT_TRUE(IsSealed(file_, FileUser()));
    seal("");
    EXPECT_TRUE(IsSealed(file_, FileUser()));
    for (const auto* other : {"", "TESSARIN HOST SEALED FILE 1", "TESSARIN HOST SEALED FILE 1\r\n",
                              "TESSARIN HOST SEALED FILE 10\n", " TESSARIN HOST SEALED FILE 1\n"}) {
        cmn::StrToFile(other, file_);
        EXPECT_FALSE(IsSealed(file_, FileUser())) << other;
    }
}

TEST_F(SealedFileTest, WhatCannotBeReadIsNotSealed) {
    ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
    for (const std::string& path :
         {std::string(), (folder_ / "missing").string(), (folder_ / "fifo").string(), folder_.path().string(),
          file_.string() + '\0'}) {
        EXPECT_FALSE(IsSealed(path, FileUser())) << path;
    }
}

TEST_F(SealedFileTest, UnsealingLeavesTheContent) {
    fake::LogCapture log(LogLevel::Info);
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), content_);
    EXPECT_FALSE(IsSealed(file_, FileUser()));
    EXPECT_THAT(names(), ElementsAre("file.txt"));
    EXPECT_THAT(log.linesWith("[ INFO]"), ElementsAre(EndsWith(" -- Unsealed " + file_.string())));
}

TEST_F(SealedFileTest, UnsealingTakesOneLineAtATime) {
    seal(sealed_);
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), sealed_);
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), content_);
}

TEST_F(SealedFileTest, UnsealsEmptyContent) {
    seal("");
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), "");
}

TEST_F(SealedFileTest, UnsealsContentOfManyPieces) {
    std::string large;
    while (large.size() < 3'000'000) {
        large += std::to_string(large.size()) + "\n";
    }
    seal(large);
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), large);
}

TEST_F(SealedFileTest, AFileThatIsNotSealedStaysAsItIs) {
    cmn::StrToFile(content_, file_);
    const auto before = StatusOf(file_);
    fake::LogCapture log(LogLevel::Info);
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::notSealed);
    EXPECT_EQ(content(), content_);
    EXPECT_EQ(StatusOf(file_).st_ino, before.st_ino);
    EXPECT_THAT(names(), ElementsAre("file.txt"));
    EXPECT_THAT(log.lines(), ElementsAre(EndsWith(" -- Cannot unseal " + file_.string() + " -- Not sealed")));
    EXPECT_EQ(log.count("[ WARN]"), 1U);
}

TEST_F(SealedFileTest, UnsealingKeepsThePermissionBits) {
    for (const auto mode : {mode_t{0600}, mode_t{0640}, mode_t{0444}, mode_t{04711}, mode_t{0777}}) {
        if ((mode & 0200U) == 0 && geteuid() != 0) {
            continue;  // only root may write it all the same
        }
        seal(content_);
        ASSERT_EQ(chmod(file_.c_str(), mode), 0);
        EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
        EXPECT_EQ(StatusOf(file_).st_mode & 07777U, mode);
        std::filesystem::remove(file_);
    }
}

TEST_F(SealedFileTest, UnsealingKeepsTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    ASSERT_EQ(chown(file_.c_str(), 12'345, 23'456), 0);
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(StatusOf(file_).st_uid, 12'345U);
    EXPECT_EQ(StatusOf(file_).st_gid, 23'456U);
}

TEST_F(SealedFileTest, UnsealingThroughALinkKeepsTheLink) {
    std::filesystem::create_directory(folder_ / "other");
    std::filesystem::create_symlink("../file.txt", folder_ / "other" / "link");
    std::filesystem::create_symlink("other/link", folder_ / "link");
    EXPECT_TRUE(IsSealed(folder_ / "link", FileUser()));
    EXPECT_EQ(Unseal(folder_ / "link", FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), content_);
    EXPECT_EQ(std::filesystem::read_symlink(folder_ / "link"), "other/link");
    EXPECT_EQ(std::filesystem::read_symlink(folder_ / "other" / "link"), "../file.txt");
    EXPECT_TRUE(S_ISREG(StatusOf(file_).st_mode));
    EXPECT_THAT(names(), UnorderedElementsAre("file.txt", "link", "other"));
}

TEST_F(SealedFileTest, OtherHardLinksStaySealed) {
    std::filesystem::create_hard_link(file_, folder_ / "second");
    EXPECT_EQ(Unseal(file_, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(content(), content_);
    EXPECT_EQ(cmn::FileToStr(folder_ / "second"), sealed_);
}

TEST_F(SealedFileTest, UnsealsAFileWithTheLongestPath) {
    auto deep = std::filesystem::canonical(folder_.path());
    while (deep.native().size() < PATH_MAX - 10) {
        const auto left = PATH_MAX - 4 - deep.native().size();
        deep /= std::string(std::min<std::size_t>(left, 200) - 1, 'd');
        ASSERT_EQ(mkdir(deep.c_str(), 0700), 0) << deep.native().size();
    }
    std::filesystem::rename(file_, deep / "f");
    EXPECT_EQ(Unseal(deep / "f", FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(cmn::FileToStr(deep / "f"), content_);
}

TEST_F(SealedFileTest, UnsealsAFileWithTheLongestName) {
    const auto longest = folder_ / std::string(255, 'n');
    std::filesystem::rename(file_, longest);
    EXPECT_EQ(Unseal(longest, FileUser()), UnsealStatus::unsealed);
    EXPECT_EQ(cmn::FileToStr(longest), content_);
}

}  // namespace
}  // namespace host
