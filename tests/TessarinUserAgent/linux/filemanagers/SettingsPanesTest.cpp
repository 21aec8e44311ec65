#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "UserHome.h"
#include "linux_filemanagers/LinuxSettingsPanes.h"
#include "support/WaitFor.h"

namespace useragent {

void PrintTo(const ProgramCall& call, std::ostream* out) {
    *out << call.program;
    for (const std::string& argument : call.arguments) {
        *out << " [" << argument << ']';
    }
}

namespace {

using testing::ElementsAre;

const ProgramCall kHelp{"xdg-open", {"/the help.html"}};

struct Case {
    const char* currentDesktop;
    SettingsTopic topic;
    std::vector<std::string> programs;
    std::optional<ProgramCall> expected;
};

TEST(SettingsPanesTest, EachDesktopHasItsPrograms) {
    using enum SettingsTopic;
    const std::vector<Case> cases{
        {"GNOME", fullDiskAccess, {"gnome-control-center"}, {{"gnome-control-center", {"privacy"}}}},
        {"GNOME", accessibility, {"gnome-control-center"}, {{"gnome-control-center", {"universal-access"}}}},
        {"ubuntu:GNOME",
         accessibility,
         {"gnome-control-center"},
         {{"gnome-control-center", {"universal-access"}}}},
        {"Unity", accessibility, {"unity-control-center"}, {{"unity-control-center", {"universal-access"}}}},
        {"Budgie:GNOME",
         fullDiskAccess,
         {"budgie-control-center", "gnome-control-center"},
         {{"budgie-control-center", {"privacy"}}}},
        {"Budgie:GNOME", fullDiskAccess, {"gnome-control-center"}, {{"gnome-control-center", {"privacy"}}}},
        {"KDE", fullDiskAccess, {"systemsettings", "systemsettings5"}, {{"systemsettings", {"kcm_users"}}}},
        {"KDE", fullDiskAccess, {"systemsettings5"}, {{"systemsettings5", {"kcm_users"}}}},
        {"KDE", accessibility, {"systemsettings"}, {{"systemsettings", {"kcm_access"}}}},
        {"KDE", accessibility, {"systemsettings5"}, {{"systemsettings5", {"kcm_access"}}}},
        {"XFCE",
         fullDiskAccess,
         {"xfce4-settings-manager", "xfce4-accessibility-settings"},
         {{"xfce4-settings-manager", {}}}},
        {"XFCE",
         accessibility,
         {"xfce4-settings-manager", "xfce4-accessibility-settings"},
         {{"xfce4-accessibility-settings", {}}}},
        {"XFCE", accessibility, {"xfce4-settings-manager", "xdg-open"}, {{"xfce4-settings-manager", {}}}},
        {"X-Cinnamon", fullDiskAccess, {"cinnamon-settings"}, {{"cinnamon-settings", {"privacy"}}}},
        {"X-Cinnamon", accessibility, {"cinnamon-settings"}, {{"cinnamon-settings", {"universal-access"}}}},
        {"MATE",
         fullDiskAccess,
         {"mate-control-center", "mate-at-properties"},
         {{"mate-control-center", {}}}},
        {"MATE", accessibility, {"mate-control-center", "mate-at-properties"}, {{"mate-at-properties", {}}}},
        {"MATE", accessibility, {"mate-control-center"}, {{"mate-control-center", {}}}},
        // Nothing of the desktop's own.
        {"GNOME", accessibility, {"systemsettings", "xdg-open"}, kHelp},
        {"KDE", fullDiskAccess, {"gnome-control-center", "xdg-open"}, kHelp},
        {"LXQt", fullDiskAccess, {"gnome-control-center", "xdg-open"}, kHelp},
        {"", accessibility, {"xdg-open"}, kHelp},
        {"GNOME", accessibility, {}, std::nullopt},
        {"", fullDiskAccess, {}, std::nullopt},
    };
    for (const Case& one : cases) {
        const auto chosen = ChooseSettingsProgram(
            DesktopNames(one.currentDesktop), one.topic,
            [&](const std::string& name) {
                return std::find(one.programs.begin(), one.programs.end(), name) != one.programs.end();
            },
            kHelp.arguments.front());
        EXPECT_EQ(chosen, one.expected)
            << one.currentDesktop << (one.topic == accessibility ? ", accessibility" : ", full disk access");
    }
}

class LinuxSettingsPanesTest : public testing::Test {
 protected:
    fake::UserHome home;
    fake::LogCapture log;
    std::vector<ProgramCall> started;
    bool canStart = true;

    LinuxSettingsPanes panes() {
        return LinuxSettingsPanes("/the help.html", home.session(), [this](const ProgramCall& call) {
            started.push_back(call);
            return canStart;
        });
    }
};

TEST_F(LinuxSettingsPanesTest, StartOneProgramForEachQuestion) {
    home.currentDesktop = "KDE";
    home.programs = {"systemsettings", "xdg-open"};
    panes().openFullDiskAccess();
    panes().openAccessibility();
    EXPECT_THAT(started, ElementsAre(ProgramCall{"systemsettings", {"kcm_users"}},
                                     ProgramCall{"systemsettings", {"kcm_access"}}));
    EXPECT_EQ(log.count("settings"), 0U);
}

TEST_F(LinuxSettingsPanesTest, SayOnceThatAProgramCannotBeStarted) {
    home.programs = {"xdg-open"};
    canStart = false;
    panes().openAccessibility();
    EXPECT_EQ(log.count("could not be started: xdg-open"), 1U);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(LinuxSettingsPanesTest, SayOnceThatThereIsNoProgram) {
    panes().openFullDiskAccess();
    EXPECT_EQ(log.count("There is no program for the desktop's settings"), 1U);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_TRUE(started.empty());
}

TEST_F(LinuxSettingsPanesTest, SurviveAStarterThatThrows) {
    home.programs = {"xdg-open"};
    LinuxSettingsPanes panes("/help", home.session(),
                             [](const ProgramCall&) -> bool { throw std::runtime_error("no processes"); });
    panes.openAccessibility();
    EXPECT_EQ(log.count("no processes"), 1U);
}

TEST_F(LinuxSettingsPanesTest, StartProgramsWithTheirArgumentsAndWithoutAShell) {
    const std::filesystem::path program = home.temporary / "pro gram";
    const std::filesystem::path note = home.temporary / "note";
    fake::WriteFile(program, "#!/bin/sh\nprintf '%s|' \"$@\" >\"" + note.string() + ".new\"\nmv \"" +
                                 note.string() + ".new\" \"" + note.string() + "\"\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    EXPECT_TRUE(LinuxSettingsPanes::StartDetached({program.string(), {"a b", "$HOME;*", ""}}));
    ASSERT_TRUE(fake::WaitFor([&] { return std::filesystem::exists(note); }));
    EXPECT_EQ(fake::ReadFile(note), "a b|$HOME;*||");
    EXPECT_FALSE(LinuxSettingsPanes::StartDetached({(home.temporary / "missing").string(), {}}));
}

TEST_F(LinuxSettingsPanesTest, TheHelpPageNeedsNothingElse) {
    const std::string page = fake::ReadFile(HELP_PAGE);
    EXPECT_NE(page.find("org.a11y.Status"), std::string::npos);
    EXPECT_NE(page.find("/root"), std::string::npos);
    for (const char* part : {"http:", "https:", "src=", "href=", "<script", "url("}) {
        EXPECT_EQ(page.find(part), std::string::npos) << part;
    }
}

}  // namespace
}  // namespace useragent
