#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "UserHome.h"
#include "permissions/DefaultApplications.h"
#include "permissions/DesktopSession.h"

namespace useragent {
namespace {

using std::filesystem::path;
using testing::ElementsAre;
using testing::IsEmpty;

XdgFolders FoldersOf(const std::map<std::string, std::string>& environment) {
    return XdgFoldersFrom([&](const char* variable) -> std::optional<std::string> {
        const auto found = environment.find(variable);
        return found == environment.end() ? std::nullopt : std::optional(found->second);
    });
}

TEST(DesktopSessionTest, FoldersHaveTheStandardPlacesWithoutVariables) {
    const XdgFolders folders = FoldersOf({{"HOME", "/home/u"}});
    EXPECT_EQ(folders.dataHome, "/home/u/.local/share");
    EXPECT_EQ(folders.configHome, "/home/u/.config");
    EXPECT_THAT(folders.dataFolders, ElementsAre(path("/usr/local/share"), path("/usr/share")));
    EXPECT_THAT(folders.configFolders, ElementsAre(path("/etc/xdg")));
}

TEST(DesktopSessionTest, FoldersFollowTheVariables) {
    const XdgFolders folders = FoldersOf({{"HOME", "/home/u"},
                                          {"XDG_DATA_HOME", "/d"},
                                          {"XDG_CONFIG_HOME", "/c"},
                                          {"XDG_DATA_DIRS", "/one:/two"},
                                          {"XDG_CONFIG_DIRS", "/three"}});
    EXPECT_EQ(folders.dataHome, "/d");
    EXPECT_EQ(folders.configHome, "/c");
    EXPECT_THAT(folders.dataFolders, ElementsAre(path("/one"), path("/two")));
    EXPECT_THAT(folders.configFolders, ElementsAre(path("/three")));
}

TEST(DesktopSessionTest, RelativeFoldersDoNotCount) {
    const XdgFolders folders = FoldersOf({{"HOME", "/home/u"},
                                          {"XDG_DATA_HOME", "d"},
                                          {"XDG_CONFIG_HOME", ""},
                                          {"XDG_CONFIG_DIRS", "three:/four"}});
    EXPECT_EQ(folders.dataHome, "/home/u/.local/share");
    EXPECT_EQ(folders.configHome, "/home/u/.config");
    EXPECT_THAT(folders.configFolders, ElementsAre(path("/four")));
}

TEST(DesktopSessionTest, FoldersAreUnknownWithoutAHome) {
    EXPECT_EQ(FoldersOf({}).dataHome, "");
    EXPECT_EQ(FoldersOf({{"HOME", "here"}}).configHome, "");
}

TEST(DesktopSessionTest, DefaultApplicationsComeInTheOrderOfTheFilesThatNameThem) {
    fake::UserHome home;
    const std::string text = "[Added Associations]\ninode/directory=no.desktop;\n[Default Applications]\n";
    fake::WriteFile(home.folders.configHome / "mimeapps.list",
                    text +
                        "text/plain=no.desktop\n inode/directory = b.desktop ; c.desktop;\n[Other]\n"
                        "inode/directory=no.desktop\n");
    fake::WriteFile(home.folders.configHome / "lxqt-mimeapps.list", text + "inode/directory=a.desktop\r\n");
    fake::WriteFile(home.folders.configFolders[0] / "mimeapps.list", text + "inode/directory=d.desktop;\n");
    fake::WriteFile(home.folders.dataHome / "applications/mimeapps.list",
                    text + "inode/directory=e.desktop\n");
    fake::WriteFile(home.folders.dataFolders[0] / "applications/mimeapps.list",
                    text + "inode/directory=f.desktop");
    EXPECT_THAT(DefaultApplications(home.folders, {"LXQt"}, "inode/directory"),
                ElementsAre("a.desktop", "b.desktop", "c.desktop", "d.desktop", "e.desktop", "f.desktop"));
}

TEST(DesktopSessionTest, NoFilesNameNoApplications) {
    fake::UserHome home;
    EXPECT_THAT(DefaultApplications(home.folders, {"LXQt"}, "inode/directory"), IsEmpty());
    EXPECT_THAT(DefaultApplications({}, {"LXQt"}, "inode/directory"), IsEmpty());
}

TEST(DesktopSessionTest, KnownApplicationsAreThoseThatTheDesktopHasTakenNoteOf) {
    fake::UserHome home;
    const std::string text = "[MIME Cache]\nx-scheme-handler/a=no.desktop;\nx-scheme-handler/b=";
    fake::WriteFile(home.folders.dataFolders[0] / "applications/mimeinfo.cache",
                    text + "2.desktop;3.desktop;\n");
    fake::WriteFile(home.folders.dataHome / "applications/mimeinfo.cache", text + "1.desktop;\n");
    EXPECT_THAT(KnownApplications(home.folders, "x-scheme-handler/b"),
                ElementsAre("1.desktop", "2.desktop", "3.desktop"));
    EXPECT_THAT(KnownApplications(home.folders, "x-scheme-handler/c"), IsEmpty());
    EXPECT_THAT(KnownApplications({}, "x-scheme-handler/b"), IsEmpty());
}

TEST(DesktopSessionTest, FileManagerIsTheUsersChoiceOnAnUnknownDesktop) {
    fake::UserHome home;
    home.currentDesktop = "LXQt";
    EXPECT_EQ(FileManagerOf(home.session()), std::nullopt);
    home.programs = {"thunar"};
    EXPECT_EQ(FileManagerOf(home.session()), FileManager::thunar);
    fake::WriteFile(home.folders.configHome / "mimeapps.list",
                    "[Default Applications]\ninode/directory=nemo.desktop\n");
    EXPECT_EQ(FileManagerOf(home.session()), FileManager::nemo);
    home.currentDesktop = "MATE";
    EXPECT_EQ(FileManagerOf(home.session()), FileManager::caja);
}

TEST(DesktopSessionTest, FindsProgramsOnThePath) {
    const DesktopSession session = CurrentDesktopSession();
    EXPECT_TRUE(session.hasProgram("sh"));
    EXPECT_FALSE(session.hasProgram("no-such-program-anywhere"));
}

}  // namespace
}  // namespace useragent
