#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QProcess>
#include <algorithm>
#include <csignal>
#include <sstream>

#include "UserHome.h"
#include "permissions/LinuxSettingsPanes.h"
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

const ProgramCall kHelpOnAccess{"xdg-open", {"file:///the%20help.html#full-disk-access"}};
const ProgramCall kHelpOnAccessibility{"xdg-open", {"file:///the%20help.html#accessibility"}};

std::optional<ProgramCall> Choose(const char* currentDesktop, SettingsTopic topic,
                                  const std::vector<std::string>& programs) {
    return ChooseSettingsProgram(
        SplitList(currentDesktop), topic,
        [&](const std::string& name) {
            return std::find(programs.begin(), programs.end(), name) != programs.end();
        },
        "/the help.html");
}

struct Case {
    const char* currentDesktop;
    std::vector<std::string> programs;
    std::optional<ProgramCall> expected;
};

TEST(SettingsPanesTest, EachDesktopHasItsProgramsForAccessibility) {
    const std::vector<Case> cases{
        {"GNOME", {"gnome-control-center"}, {{"gnome-control-center", {"universal-access"}}}},
        {"ubuntu:GNOME", {"gnome-control-center"}, {{"gnome-control-center", {"universal-access"}}}},
        {"Unity", {"unity-control-center"}, {{"unity-control-center", {"universal-access"}}}},
        {"Budgie:GNOME",
         {"budgie-control-center", "gnome-control-center"},
         {{"budgie-control-center", {"universal-access"}}}},
        {"Budgie:GNOME", {"gnome-control-center"}, {{"gnome-control-center", {"universal-access"}}}},
        {"KDE", {"systemsettings", "systemsettings5"}, {{"systemsettings", {"kcm_access"}}}},
        {"KDE", {"systemsettings5"}, {{"systemsettings5", {"kcm_access"}}}},
        {"XFCE",
         {"xfce4-settings-manager", "xfce4-accessibility-settings"},
         {{"xfce4-accessibility-settings", {}}}},
        {"XFCE", {"xfce4-settings-manager", "xdg-open"}, {{"xfce4-settings-manager", {}}}},
        {"X-Cinnamon", {"cinnamon-settings"}, {{"cinnamon-settings", {"universal-access"}}}},
        {"MATE", {"mate-control-center", "mate-at-properties"}, {{"mate-at-properties", {}}}},
        {"MATE", {"mate-control-center"}, {{"mate-control-center", {}}}},
        // Nothing of the desktop's own.
        {"GNOME", {"systemsettings", "xdg-open"}, kHelpOnAccessibility},
        {"KDE", {"gnome-control-center", "xdg-open"}, kHelpOnAccessibility},
        {"LXQt", {"gnome-control-center", "xdg-open"}, kHelpOnAccessibility},
        {"", {"xdg-open"}, kHelpOnAccessibility},
        {"GNOME", {}, std::nullopt},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(Choose(one.currentDesktop, SettingsTopic::accessibility, one.programs), one.expected)
            << one.currentDesktop;
    }
}

TEST(SettingsPanesTest, FullDiskAccessIsTheHelpPagesAffairOnEveryDesktop) {
    const std::vector<std::string> all{
        "gnome-control-center", "unity-control-center", "budgie-control-center",
        "systemsettings",       "systemsettings5",      "xfce4-settings-manager",
        "cinnamon-settings",    "mate-control-center",  "xdg-open"};
    for (const char* desktop :
         {"GNOME", "Unity", "Budgie:GNOME", "KDE", "XFCE", "X-Cinnamon", "MATE", "LXQt", ""}) {
        EXPECT_EQ(Choose(desktop, SettingsTopic::fullDiskAccess, all), kHelpOnAccess) << desktop;
    }
    EXPECT_EQ(Choose("GNOME", SettingsTopic::fullDiskAccess, {"gnome-control-center"}), std::nullopt);
}

TEST(SettingsPanesTest, TheHelpPageHasTheSectionsThatAreOpened) {
    const std::string page = fake::ReadFile(HELP_PAGE);
    for (const ProgramCall& help : {kHelpOnAccess, kHelpOnAccessibility}) {
        const std::string& url = help.arguments.front();
        EXPECT_NE(page.find("id=\"" + url.substr(url.find('#') + 1) + '"'), std::string::npos) << url;
    }
}

class LinuxSettingsPanesTest : public testing::Test {
 protected:
    fake::UserHome home;
    fake::LogCapture log;
    std::vector<ProgramCall> started;
    std::vector<LinuxSettingsPanes::FailureHandler> failed;

    LinuxSettingsPanes panes() {
        return LinuxSettingsPanes("/the help.html", home.session(),
                                  [this](const ProgramCall& call, const auto& onFailure) {
                                      started.push_back(call);
                                      failed.push_back(onFailure);
                                  });
    }
};

TEST_F(LinuxSettingsPanesTest, StartOneProgramForEachQuestion) {
    home.currentDesktop = "KDE";
    home.programs = {"systemsettings", "xdg-open"};
    panes().openFullDiskAccess();
    panes().openAccessibility();
    EXPECT_THAT(started, ElementsAre(kHelpOnAccess, ProgramCall{"systemsettings", {"kcm_access"}}));
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(LinuxSettingsPanesTest, SayThatAProgramFailedAlsoWhenTheyAreGone) {
    home.programs = {"xdg-open"};
    panes().openAccessibility();
    failed.at(0)("no such thing");
    EXPECT_EQ(log.count("WARN"), 1U);
    EXPECT_EQ(log.count("xdg-open file:///the%20help.html#accessibility -- failed: no such thing"), 1U);
}

TEST_F(LinuxSettingsPanesTest, SayOnceThatThereIsNoProgram) {
    panes().openFullDiskAccess();
    EXPECT_EQ(log.count("There is no program for the desktop's settings"), 1U);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_TRUE(started.empty());
}

TEST_F(LinuxSettingsPanesTest, SurviveAStarterThatThrows) {
    home.programs = {"xdg-open"};
    LinuxSettingsPanes panes("/help", home.session(), [](const ProgramCall&, const auto&) {
        throw std::runtime_error("no processes");
    });
    panes.openAccessibility();
    EXPECT_EQ(log.count("no processes"), 1U);
}

class StartedProgramTest : public testing::Test {
 protected:
    // A program that runs these lines.
    std::string program(const std::string& lines) {
        const std::filesystem::path path = folder / "pro gram";
        fake::WriteFile(path, "#!/bin/sh\n" + lines + '\n');
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path.string();
    }
    // Lines that leave a text in the note, complete as soon as it is there.
    std::string noting(const std::string& command) const {
        return command + " >'" + note.string() + ".new'\nmv '" + note.string() + ".new' '" + note.string() +
               "'";
    }
    void start(const ProgramCall& call) {
        LinuxSettingsPanes::Start(call, [this](const std::string& failure) { failures.push_back(failure); });
    }

    fake::TemporaryFolder folder;
    const std::filesystem::path note = folder / "note";
    std::vector<std::string> failures;
};

TEST_F(StartedProgramTest, HasItsArgumentsAndNoShell) {
    start({program(noting("printf '%s|' $$ \"$@\"")), {"a b", "$HOME;*", ""}});
    ASSERT_TRUE(fake::WaitFor([&] { return std::filesystem::exists(note); }));
    const std::string noted = fake::ReadFile(note);
    EXPECT_EQ(noted.substr(noted.find('|')), "|a b|$HOME;*||");
    // Until its end has been taken notice of.
    EXPECT_TRUE(fake::WaitFor([pid = std::stoi(noted)] { return kill(pid, 0) != 0; }));
    QCoreApplication::processEvents();
    EXPECT_THAT(failures, ElementsAre());
}

TEST_F(StartedProgramTest, BelongsToNobodyWhoseEndWouldEndIt) {
    const std::filesystem::path go = folder / "go";
    start({program(noting("cut -d ' ' -f 1,6 /proc/$$/stat") + "\nwhile [ ! -e '" + go.string() +
                   "' ]; do sleep 0.1; done\nexit 5"),
           {}});
    ASSERT_TRUE(fake::WaitFor([&] { return std::filesystem::exists(note); }));
    int process = 0;
    int session = -1;
    std::istringstream(fake::ReadFile(note)) >> process >> session;
    EXPECT_EQ(session, process);
    EXPECT_TRUE(qApp->findChildren<QProcess*>().isEmpty());
    fake::WriteFile(go, "");
    EXPECT_TRUE(fake::WaitFor([&] { return !failures.empty(); }));
}

TEST_F(StartedProgramTest, ThatIsNotThereHasFailed) {
    start({(folder / "missing").string(), {}});
    ASSERT_TRUE(fake::WaitFor([&] { return !failures.empty(); }));
    EXPECT_EQ(failures.size(), 1U);
}

TEST_F(StartedProgramTest, HasFailedWhenItEndsWithAnError) {
    start({program("exit 3"), {}});
    ASSERT_TRUE(fake::WaitFor([&] { return !failures.empty(); }));
    EXPECT_THAT(failures, ElementsAre("it ended with code 3"));
}

TEST_F(StartedProgramTest, HasFailedWhenItIsKilled) {
    start({program("kill -9 $$"), {}});
    ASSERT_TRUE(fake::WaitFor([&] { return !failures.empty(); }));
    EXPECT_EQ(failures.size(), 1U);
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
