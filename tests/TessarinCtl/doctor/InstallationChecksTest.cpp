#include "World.h"

namespace ctl {
namespace {

class InstallationChecksTest : public World {};

TEST_F(InstallationChecksTest, WithoutAnOpenerThePackageIsNamed) {
    programs.erase("xdg-open");
    EXPECT_THAT(run(CheckPackages), Is(Verdict::wrong, "xdg-open", "sudo apt-get install xdg-utils"));
}

TEST_F(InstallationChecksTest, UnderWaylandThePlugInForItIsNeeded) {
    std::filesystem::remove(folder / "qt/platforms/libqwayland-generic.so");
    EXPECT_THAT(run(CheckPackages), Is(Verdict::wrong, "Wayland", "sudo apt-get install qt6-wayland"));
    variables.erase("WAYLAND_DISPLAY");
    EXPECT_THAT(run(CheckPackages), IsGood());
}

TEST_F(InstallationChecksTest, UnderX11ThePlugInForItIsNeeded) {
    std::filesystem::remove(folder / "qt/platforms/libqxcb.so");
    EXPECT_THAT(run(CheckPackages), Is(Verdict::wrong, "X11", "libqt6gui6"));
    variables.erase("DISPLAY");
    EXPECT_THAT(run(CheckPackages), IsGood());
}

TEST_F(InstallationChecksTest, AllThatIsMissingIsInstalledByOneCommandOfTheSystem) {
    programs = {"dnf"};
    std::filesystem::remove_all(root / "usr/share/dbus-1/services");
    EXPECT_THAT(run(CheckPackages), Is(Verdict::wrong, "xdg-open, the accessibility bus",
                                       "sudo dnf install xdg-utils at-spi2-core"));
    programs.clear();
    EXPECT_THAT(run(CheckPackages), Is(Verdict::wrong, "Missing", "install xdg-utils at-spi2-core"));
}

TEST_F(InstallationChecksTest, ThePolicyOfTheBusIsMissed) {
    std::filesystem::remove(policy);
    EXPECT_THAT(run(CheckBusPolicy), Is(Verdict::wrong, "com.tessarin.conf is not installed", "--reinstall"));
    programs = {"dnf"};
    EXPECT_THAT(run(CheckBusPolicy), Is(Verdict::wrong, "com.tessarin.conf", "sudo dnf reinstall"));
}

TEST_F(InstallationChecksTest, AnAdministratorsPolicyCountsFirst) {
    Write(root / "etc/dbus-1/system.d/com.tessarin.conf", "<busconfig><policy>");
    EXPECT_THAT(run(CheckBusPolicy), Is(Verdict::wrong, "cannot be read by the bus", "tessarin-user-agent"));
}

TEST_F(InstallationChecksTest, APolicyThatLetsNobodyOfferAServiceIsWrong) {
    Write(policy,
          "<busconfig><policy><allow own=\"com.tessarin.UserAgent\"/>"
          "<deny own=\"com.tessarin.FinderExtension\"/></policy></busconfig>");
    EXPECT_THAT(run(CheckBusPolicy),
                Is(Verdict::wrong, "nobody offer com.tessarin.FinderExtension", "tessarin"));
}

TEST_F(InstallationChecksTest, TheActionsOfPolkitAreMissed) {
    Write(actions, "<policyconfig><action id=\"com.tessarin.installation\"/></policyconfig>");
    EXPECT_THAT(run(CheckPolkitActions),
                Is(Verdict::wrong, "has no action system.privilege.admin", "--reinstall"));
    Write(actions, "<policyconfig>");
    EXPECT_THAT(run(CheckPolkitActions), Is(Verdict::wrong, "cannot be read by polkit", "--reinstall"));
    std::filesystem::remove(actions);
    EXPECT_THAT(run(CheckPolkitActions), Is(Verdict::wrong, "is not installed", "--reinstall"));
}

TEST_F(InstallationChecksTest, PolkitItselfIsMissed) {
    polkit.reset();
    EXPECT_THAT(run(CheckPolkitActions), Is(Verdict::warning, "polkit is not", "polkitd"));
}

}  // namespace
}  // namespace ctl
