#include <QVariant>

#include "World.h"
#include "filemanagers/FileManagerEntries.h"

namespace ctl {
namespace {

class DesktopChecksTest : public World {
 protected:
    void choose(const std::string& application) const {
        Write(home / ".config/mimeapps.list",
              "[Default Applications]\nx-scheme-handler/tessarin-scheme=" + application + "\n");
    }
    const std::filesystem::path helper = home / ".local/share/tessarin/tessarin-properties";
};

TEST_F(DesktopChecksTest, WithoutAPlaceForTheItemThereIsAWarning) {
    hasHost = false;
    EXPECT_THAT(run(CheckTray), Is(Verdict::warning, "No panel", "system tray"));
    windowTray = false;
    EXPECT_THAT(run(CheckTray), Is(Verdict::warning, "No panel", "system tray"));
    windowTray = true;
    EXPECT_THAT(run(CheckTray), IsGood());
}

TEST_F(DesktopChecksTest, OnGnomeTheExtensionIsNamed) {
    panel.reset();
    variables["XDG_CURRENT_DESKTOP"] = "ubuntu:GNOME";
    EXPECT_THAT(run(CheckTray), Is(Verdict::warning, "No panel", "gnome-shell-extension-appindicator"));
}

TEST_F(DesktopChecksTest, AStatusAreaThatHangsIsTold) {
    panel.reset();
    panel = silent(desktop.sessionBus, "org.kde.StatusNotifierWatcher");
    windowTray = true;
    EXPECT_THAT(run(CheckTray, kShort), Is(Verdict::warning, "does not answer", "panel again"));
}

TEST_F(DesktopChecksTest, WithoutASessionBusATrayOfTheXServerWillDo) {
    sessionAddress = "";
    windowTray = true;
    EXPECT_THAT(run(CheckTray), IsGood());
}

TEST_F(DesktopChecksTest, AnEntryThatIsNotThereIsAWarning) {
    const useragent::FileManagerEntries entries(bundle / "Contents/Resources/file-managers",
                                                machine().desktop.folders);
    entries.remove(useragent::FileManager::thunar);
    const Finding finding = run(CheckFileManager);
    EXPECT_THAT(finding, Is(Verdict::warning, "Thunar has none",
                            program.string() + " --file-manager-action install thunar"));
    EXPECT_FALSE(finding.mend) << "who does not want it has not got it";
}

TEST_F(DesktopChecksTest, AnEntryThatDoesNothingIsTakenOut) {
    std::filesystem::remove(helper);
    const Finding finding = run(CheckFileManager);
    ASSERT_THAT(finding, Is(Verdict::wrong, "Thunar shows an entry that does nothing",
                            "--file-manager-action remove thunar"));
    finding.mend(machine(), cmn::bus::Clock::now());
    EXPECT_THAT(run(CheckFileManager), Is(Verdict::warning, "Thunar has none", "install thunar"));
}

TEST_F(DesktopChecksTest, WithoutAFileManagerThereIsNothingToLookAt) {
    variables["XDG_CURRENT_DESKTOP"] = "sway";
    programs.erase("thunar");
    EXPECT_EQ(run(CheckFileManager).verdict, Verdict::notApplicable);
}

TEST_F(DesktopChecksTest, TheDesktopFileIsMissed) {
    std::filesystem::remove(handler);
    EXPECT_THAT(run(CheckUrlScheme),
                Is(Verdict::wrong, "com.tessarin.TessarinUserAgent.desktop is not installed", "--reinstall"));
}

TEST_F(DesktopChecksTest, AProgramThatTheDesktopFileStartsIsMissed) {
    std::filesystem::remove(program);
    EXPECT_THAT(run(CheckUrlScheme),
                Is(Verdict::wrong, program.string() + "\", which is missing", "--reinstall"));
    Write(handler, "[Desktop Entry]\n");
    EXPECT_THAT(run(CheckUrlScheme), Is(Verdict::wrong, "which is missing", "--reinstall"));
}

TEST_F(DesktopChecksTest, ADesktopThatKnowsNobodyForTheSchemeIsTold) {
    std::filesystem::remove(data / "applications/mimeinfo.cache");
    const Finding finding = run(CheckUrlScheme);
    const std::string command =
        "xdg-mime default com.tessarin.TessarinUserAgent.desktop x-scheme-handler/tessarin-scheme";
    ASSERT_THAT(finding, Is(Verdict::wrong, "does not know who opens them", command));
    onRun = [this](const auto& words) {
        choose("com.tessarin.TessarinUserAgent.desktop");
        return words.front() == "xdg-mime";
    };
    finding.mend(machine(), cmn::bus::Clock::now());
    EXPECT_THAT(commands, testing::ElementsAre(testing::ElementsAre("xdg-mime", "default",
                                                                    "com.tessarin.TessarinUserAgent.desktop",
                                                                    "x-scheme-handler/tessarin-scheme")));
    EXPECT_THAT(run(CheckUrlScheme), IsGood());
}

TEST_F(DesktopChecksTest, ADesktopThatOpensTheSchemeWithSomethingElseIsTold) {
    choose("other.desktop");
    EXPECT_THAT(run(CheckUrlScheme), IsGood()) << "that one is not installed";
    Write(home / ".local/share/applications/other.desktop", "");
    const Finding finding = run(CheckUrlScheme);
    ASSERT_THAT(finding, Is(Verdict::wrong, "opens them with other.desktop", "xdg-mime default"));
    onRun = [](const auto&) { return false; };
    EXPECT_THROW(finding.mend(machine(), cmn::bus::Clock::now()), std::runtime_error);
}

}  // namespace
}  // namespace ctl
