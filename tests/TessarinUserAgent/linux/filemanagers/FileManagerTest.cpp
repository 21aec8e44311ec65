#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "filemanagers/FileManager.h"

namespace useragent {

void PrintTo(FileManager manager, std::ostream* out) {
    *out << FactsOf(manager).name;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Desktop {
    const char* currentDesktop;
    std::vector<std::string> folderHandlers;
    std::vector<std::string> programs;
    std::optional<FileManager> expected;
};

TEST(FileManagerTest, IsTheOneOfTheDesktopThenOfTheUsersChoiceThenTheFirstInstalled) {
    using enum FileManager;
    const std::vector<Desktop> desktops{
        {"GNOME", {}, {}, nautilus},
        {"Unity", {}, {}, nautilus},
        {"Budgie:GNOME", {}, {}, nautilus},
        {"ubuntu:GNOME", {}, {}, nautilus},
        {"GNOME-Classic:GNOME", {}, {}, nautilus},
        {"X-Cinnamon", {}, {}, nemo},
        {"MATE", {}, {}, caja},
        {"XFCE", {}, {}, thunar},
        {"KDE", {}, {}, dolphin},
        {"xfce", {}, {}, thunar},
        {"KDE:GNOME", {}, {}, dolphin},
        {"::KDE:", {}, {}, dolphin},
        {"KDE", {"nemo.desktop"}, {"nautilus"}, dolphin},
        {"LXQt", {"pcmanfm-qt.desktop", "org.gnome.Nautilus.desktop"}, {"dolphin"}, nautilus},
        {"LXQt", {"thunar.desktop"}, {}, thunar},
        {"LXQt", {"Thunar-folder-handler.desktop"}, {}, thunar},
        {"LXQt", {"caja-folder-handler.desktop"}, {}, caja},
        {"", {"org.kde.dolphin.desktop"}, {}, dolphin},
        {"", {"nemo.desktop"}, {}, nemo},
        {"LXQt", {"pcmanfm-qt.desktop"}, {"dolphin", "caja"}, caja},
        {"", {}, {"dolphin"}, dolphin},
        {"GNOMEX", {}, {"thunar"}, thunar},
        {"LXQt", {"pcmanfm-qt.desktop"}, {"pcmanfm-qt"}, std::nullopt},
        {"", {}, {}, std::nullopt},
    };
    for (const Desktop& desktop : desktops) {
        const auto chosen = ChooseFileManager(
            SplitList(desktop.currentDesktop), desktop.folderHandlers, [&](const std::string& name) {
                return std::find(desktop.programs.begin(), desktop.programs.end(), name) !=
                       desktop.programs.end();
            });
        EXPECT_EQ(chosen, desktop.expected) << desktop.currentDesktop;
    }
}

TEST(FileManagerTest, SplitsLists) {
    EXPECT_THAT(SplitList(""), IsEmpty());
    EXPECT_THAT(SplitList("GNOME"), ElementsAre("GNOME"));
    EXPECT_THAT(SplitList("ubuntu:GNOME"), ElementsAre("ubuntu", "GNOME"));
    EXPECT_THAT(SplitList(":a::b:"), ElementsAre("a", "b"));
}

TEST(FileManagerTest, IsFoundByItsNameWhateverTheCase) {
    for (const FileManager manager : kFileManagers) {
        EXPECT_EQ(FileManagerNamed(FactsOf(manager).name), manager);
        EXPECT_EQ(FileManagerNamed(ProgramOf(manager)), manager);
    }
    EXPECT_EQ(FileManagerNamed("THUNAR"), FileManager::thunar);
    EXPECT_EQ(FileManagerNamed(""), std::nullopt);
    EXPECT_EQ(FileManagerNamed("nautilu"), std::nullopt);
}

}  // namespace
}  // namespace useragent
