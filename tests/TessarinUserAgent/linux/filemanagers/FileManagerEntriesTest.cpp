#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EntriesTest.h"
#include "filemanagers/FileManagerEntries.h"
#include "support/FileSizeLimit.h"

namespace useragent {
namespace {

using std::filesystem::path;
using testing::HasSubstr;

class FileManagerEntriesTest : public EntriesTest, public testing::WithParamInterface<FileManager> {};

TEST_P(FileManagerEntriesTest, InstallsTheEntryAndTheScriptItNeeds) {
    EXPECT_FALSE(entries.isInstalled(GetParam()));
    entries.install(GetParam());
    EXPECT_TRUE(entries.isInstalled(GetParam()));
    EXPECT_EQ(files().size(), 2U);
    EXPECT_THAT(fake::ReadFile(home.helper()),
                HasSubstr("agent='" + home.templates.parent_path().parent_path().string() +
                          "/Linux/TessarinUserAgent'\n"));
    EXPECT_TRUE(fake::IsExecutable(home.helper()));
    const std::string entry = fake::ReadFile(home.entryOf(GetParam()));
    EXPECT_THAT(entry, HasSubstr("data home/tessarin/tessarin-properties"));
    EXPECT_EQ(entry.find("@HELPER@"), std::string::npos);
    const bool isProgram = GetParam() != FileManager::thunar && GetParam() != FileManager::nemo;
    EXPECT_EQ(fake::IsExecutable(home.entryOf(GetParam())), isProgram);
    for (const FileManager other : kFileManagers) {
        EXPECT_EQ(entries.isInstalled(other), other == GetParam());
    }
}

TEST_P(FileManagerEntriesTest, InstallingTwiceIsInstallingOnce) {
    entries.install(GetParam());
    const auto before = files();
    const auto written = std::filesystem::last_write_time(home.entryOf(GetParam()));
    entries.install(GetParam());
    EXPECT_EQ(files(), before);
    EXPECT_EQ(std::filesystem::last_write_time(home.entryOf(GetParam())), written) << "written again";
}

TEST_P(FileManagerEntriesTest, RemovingLeavesNothingOfOurs) {
    fake::WriteFile(home.entryOf(GetParam()).parent_path() / "of the user", "text");
    const auto before = files();
    entries.remove(GetParam());
    EXPECT_EQ(files(), before);
    entries.install(GetParam());
    entries.remove(GetParam());
    EXPECT_FALSE(entries.isInstalled(GetParam()));
    EXPECT_EQ(files(), before);
    EXPECT_FALSE(std::filesystem::exists(home.helper().parent_path()));
    entries.remove(GetParam());
    EXPECT_EQ(files(), before);
}

TEST_P(FileManagerEntriesTest, TheScriptStaysWhileAnotherFileManagerNeedsIt) {
    const FileManager other = GetParam() == FileManager::caja ? FileManager::thunar : FileManager::caja;
    entries.install(GetParam());
    entries.install(other);
    entries.remove(GetParam());
    EXPECT_TRUE(entries.isInstalled(other));
    entries.remove(other);
    EXPECT_TRUE(files().empty());
}

TEST_P(FileManagerEntriesTest, IsNotInstalledWhenAPartIsMissing) {
    entries.install(GetParam());
    std::filesystem::permissions(home.helper(),
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_FALSE(entries.isInstalled(GetParam()));
    entries.install(GetParam());
    EXPECT_TRUE(entries.isInstalled(GetParam()));
    std::filesystem::remove(home.helper());
    EXPECT_FALSE(entries.isInstalled(GetParam()));
    entries.install(GetParam());
    EXPECT_TRUE(entries.isInstalled(GetParam()));
    std::filesystem::remove(home.entryOf(GetParam()));
    EXPECT_FALSE(entries.isInstalled(GetParam()));
}

TEST_P(FileManagerEntriesTest, IsBrokenWhenTheEntryIsThereAndDoesNothing) {
    EXPECT_FALSE(entries.isBroken(GetParam()));
    entries.install(GetParam());
    EXPECT_FALSE(entries.isBroken(GetParam()));
    std::filesystem::remove(home.helper());
    EXPECT_TRUE(entries.isBroken(GetParam()));
    entries.remove(GetParam());
    EXPECT_FALSE(entries.isBroken(GetParam()));
}

TEST_P(FileManagerEntriesTest, RenewsAnOldEntry) {
    entries.install(GetParam());
    const auto fresh = files();
    fake::WriteFile(home.helper(), "old");
    home.folders.dataHome = home.temporary / "elsewhere";
    home.entries().install(FileManager::caja);
    home.folders.dataHome = home.temporary / "data home";
    entries.install(GetParam());
    EXPECT_EQ(fake::ReadFile(home.entryOf(GetParam())), fresh.at(home.entryOf(GetParam()).string()));
    EXPECT_EQ(fake::ReadFile(home.helper()), fresh.at(home.helper().string()));
}

TEST_P(FileManagerEntriesTest, NothingIsHalfInstalledWhenTheEntryCannotBeWritten) {
    // A file where a folder is needed stops even the administrator.
    const path folder = home.entryOf(GetParam()).parent_path();
    fake::WriteFile(folder, "in the way");
    const auto before = files();
    EXPECT_THAT(ErrorOf([&] { entries.install(GetParam()); }), HasSubstr(folder.string()));
    EXPECT_EQ(files(), before);
    EXPECT_FALSE(std::filesystem::exists(home.helper().parent_path()));
    EXPECT_FALSE(entries.isInstalled(GetParam()));
}

TEST_P(FileManagerEntriesTest, NothingIsHalfInstalledWhenTheScriptCannotBeWritten) {
    fake::WriteFile(home.helper().parent_path(), "in the way");
    const auto before = files();
    EXPECT_THAT(ErrorOf([&] { entries.install(GetParam()); }), HasSubstr("tessarin"));
    EXPECT_EQ(files(), before);
    EXPECT_FALSE(std::filesystem::exists(home.entryOf(GetParam()).parent_path()));
}

TEST_P(FileManagerEntriesTest, NothingIsHalfInstalledOnAFullDisk) {
    fake::WriteFile(home.thunar(), "<actions>" + std::string(5000, ' ') + "</actions>");
    const auto before = files();
    {
        // Without room for the script; then, for Thunar, with room for that alone.
        const fake::FileSizeLimit disk(GetParam() == FileManager::thunar ? 4500 : 100);
        EXPECT_THAT(ErrorOf([&] { entries.install(GetParam()); }), HasSubstr("cannot be written"));
        EXPECT_EQ(files(), before);
    }
    entries.install(GetParam());
    EXPECT_TRUE(entries.isInstalled(GetParam()));
}

TEST_P(FileManagerEntriesTest, SaysWhenATemplateIsMissing) {
    home.templates = home.temporary / "nowhere";
    const std::string error = ErrorOf([&] { home.entries().install(GetParam()); });
    EXPECT_THAT(error, HasSubstr("nowhere"));
    EXPECT_THAT(error, HasSubstr("is missing"));
    EXPECT_TRUE(files().empty());
}

TEST_P(FileManagerEntriesTest, SaysWhenTheUserHasNoHome) {
    home.folders = {};
    EXPECT_THAT(ErrorOf([&] { home.entries().install(GetParam()); }), HasSubstr("HOME"));
    EXPECT_FALSE(home.entries().isInstalled(GetParam()));
}

TEST_P(FileManagerEntriesTest, RefusesFoldersThatNoCommandLineCanHold) {
    for (const char* name : {"line\nbreak", "not\xFFutf8"}) {
        home.folders.dataHome = home.temporary / name;
        EXPECT_NE(ErrorOf([&] { home.entries().install(GetParam()); }), "") << name;
        EXPECT_TRUE(files().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(All, FileManagerEntriesTest, testing::ValuesIn(kFileManagers),
                         [](const auto& manager) { return FactsOf(manager.param).name; });

// Those who keep the entry in a file of its own.
class OwnEntryFileTest : public EntriesTest, public testing::WithParamInterface<FileManager> {};

TEST_P(OwnEntryFileTest, LeavesAFileOfTheUsersWithThatNameAlone) {
    fake::WriteFile(home.entryOf(GetParam()), "the user's own");
    const auto before = files();
    EXPECT_THAT(ErrorOf([&] { entries.install(GetParam()); }), HasSubstr("is not from Tessarin"));
    EXPECT_EQ(files(), before);
    EXPECT_FALSE(entries.isInstalled(GetParam()));
    entries.remove(GetParam());
    EXPECT_EQ(files(), before);
}

INSTANTIATE_TEST_SUITE_P(All, OwnEntryFileTest,
                         testing::Values(FileManager::nautilus, FileManager::nemo, FileManager::caja,
                                         FileManager::dolphin),
                         [](const auto& manager) { return FactsOf(manager.param).name; });

}  // namespace
}  // namespace useragent
