#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#include "OwnProcess.h"
#include "OwnSystem.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/log.h"
#include "impl_linux/machine.h"
#include "impl_posix/user_database.h"
#include "installed_user.h"
#include "support/LogCapture.h"
#include "support/SystemLogCapture.h"

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::MatchesRegex;

const auto g_idAtLoad = std::this_thread::get_id();

TEST(ProcessIdentityTest, PidIsThisProcess) {
    EXPECT_EQ(cmn::GetPID(), getpid());
}

TEST(ProcessIdentityTest, PathIsThisProgram) {
    std::error_code error;
    const auto self = fs::read_symlink("/proc/self/exe", error).string();
    ASSERT_FALSE(error);
    EXPECT_EQ(cmn::GetCurrentExecutablePath(), self);
    EXPECT_EQ(cmn::GetCurrentExecutablePath(), self);
    EXPECT_EQ(cmn::GetModuleName(), self);
    EXPECT_EQ(cmn::GetProcessPathForPID(static_cast<unsigned int>(getpid())), self);
    EXPECT_THAT(self, EndsWith("/CommonTest"));
}

TEST(ProcessIdentityTest, PathOfAnotherProcessIsItsProgram) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const auto pid = fork();
    if (pid == 0) {
        dup2(ends[0], STDIN_FILENO);
        close(ends[1]);
        execl("/bin/cat", "cat", nullptr);
        _exit(1);
    }
    close(ends[0]);
    const auto expected = fs::canonical("/bin/cat").string();
    std::string path;
    while (path != expected && waitpid(pid, nullptr, WNOHANG) == 0)
        path = cmn::GetProcessPathForPID(static_cast<unsigned int>(pid));
    EXPECT_EQ(path, expected);
    close(ends[1]);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(cmn::GetProcessPathForPID(static_cast<unsigned int>(pid)), "");
}

TEST(ProcessIdentityTest, PathOfNoProcessIsEmpty) {
    EXPECT_EQ(cmn::GetProcessPathForPID(std::numeric_limits<unsigned int>::max()), "");
}

TEST(SharedFolderTest, IsTheFolderOfABareProgram) {
    EXPECT_EQ(cmn::GetSharedPath(), fs::path(cmn::GetCurrentExecutablePath()).parent_path());
}

TEST(SharedFolderTest, BareProgramHasNoBundleVersion) {
    EXPECT_EQ(cmn::GetBundleShortVersion(), std::nullopt);
}

TEST(FixedPathsTest, AreTheProducts) {
    EXPECT_EQ(cmn::GetPersistPath(), "/var/opt/tessarin");
    EXPECT_EQ(cmn::GetUsersRoot(), "/home");
}

TEST(UserTest, IdOfAUserIsTheDatabases) {
    EXPECT_EQ(cmn::GetUIDByName("root"), 0U);
    EXPECT_EQ(cmn::GetUIDByName("no such user"), std::nullopt);
    EXPECT_EQ(cmn::GetUIDByName(""), std::nullopt);
}

TEST(UserTest, DatabaseKnowsNameAndHome) {
    const auto* expected = getpwuid(0);
    ASSERT_NE(expected, nullptr);
    const auto root = cmn::FindUser(cmn::UserId{0});
    ASSERT_TRUE(root.has_value());
    EXPECT_EQ(root->name, expected->pw_name);
    EXPECT_EQ(root->home, expected->pw_dir);
    EXPECT_EQ(cmn::FindUser(std::numeric_limits<cmn::UserId>::max() - 7), std::nullopt);
}

TEST(UserTest, HomeIsTheConsoleUsers) {
    const auto name = cmn::GetCurrentUserName();
    const auto user = cmn::FindUser(name);
    EXPECT_EQ(cmn::GetInstallationUserHomePath(), user ? user->home : "");
}

TEST(SystemLogTest, TakesTheMessageAsItIs) {
    const fake::SystemLogCapture log;
    cmn::SystemLog("100%s of \"all\"");
    cmn::SystemLog(std::string_view("only this and no more", 9));
    EXPECT_THAT(log.lines(), testing::ElementsAre("100%s of \"all\"", "only this"));
}

TEST(HostTest, NameIsTheKernels) {
    std::array<char, 256> name{};
    ASSERT_EQ(gethostname(name.data(), name.size()), 0);
    EXPECT_EQ(cmn::GetHostName(), name.data());
}

TEST(HostTest, OSNameIsTheSystemsWithTheMachine) {
    utsname system{};
    ASSERT_EQ(uname(&system), 0);
    EXPECT_EQ(cmn::GetOSName(), cmn::OSNameBelow("", system.machine));
    EXPECT_THAT(cmn::GetOSName(), EndsWith(std::string(" (") + system.machine + ")"));
}

TEST(HostTest, MACAddressIsTwelveDigitsOrEmpty) {
    EXPECT_THAT(cmn::GetMACAddress(), MatchesRegex("|[0-9A-F]{12}"));
}

class FakeSystem : public testing::Test {
 protected:
    void write(const std::string& name, const std::string& text) const {
        fs::create_directories((folder_ / name).parent_path());
        cmn::StrToFile(text, folder_ / name);
    }
    std::string root() const { return folder_.path().string(); }

    const fake::TemporaryFolder folder_;
};

using MACAddressTest = FakeSystem;

constexpr auto kRoute = "eth7 00000000 0102A8C0 0003 0 0 100 00000000 0 0 0\n";

TEST_F(MACAddressTest, IsThatOfTheDefaultRoutesInterface) {
    write("proc/net/route", kRoute);
    write("sys/class/net/eth7/address", "02:42:ac:11:00:0f\n");
    write("sys/class/net/eth0/address", "ff:ff:ff:ff:ff:ff\n");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "0242AC11000F");
}

TEST_F(MACAddressTest, TakesTheNewerProtocolsRouteWhenThereIsNoOther) {
    write("proc/net/route", "Iface Destination\n");
    write("proc/net/ipv6_route", std::string(32, '0') + " 00 " + std::string(32, '0') + " 00 " +
                                     std::string(32, '1') + " 00000400 00000001 00000000 00450003 eth8\n");
    write("sys/class/net/eth8/address", "02:42:ac:11:00:08\n");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "0242AC110008");
}

TEST_F(MACAddressTest, PassesOverInterfacesThatHaveNone) {
    write("proc/net/route",
          "tun0 00000000 00000000 0001 0 0 0 00000000 0 0 0\n"
          "wlan0 00000000 0102A8C0 0003 0 0 600 00000000 0 0 0\n"
          "ppp0 00000000 00000000 0001 0 0 50 00000000 0 0 0\n"
          "eth7 00000000 0102A8C0 0003 0 0 100 00000000 0 0 0\n");
    write("sys/class/net/tun0/address", "\n");
    write("sys/class/net/eth7/address", "02:42:ac:11:00:0f\n");
    write("sys/class/net/wlan0/address", "02:42:ac:11:00:10\n");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "0242AC11000F");
    write("sys/class/net/eth7/address", "00:00:00:00:00:00\n");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "0242AC110010");
}

TEST_F(MACAddressTest, TakesTheNewerProtocolsRouteWhenTheOtherGoesThroughATunnel) {
    write("proc/net/route", "tun0 00000000 00000000 0001 0 0 0 00000000 0 0 0\n");
    write("proc/net/ipv6_route", std::string(32, '0') + " 00 " + std::string(32, '0') + " 00 " +
                                     std::string(32, '1') + " 00000400 00000001 00000000 00450003 eth8\n");
    write("sys/class/net/eth8/address", "02:42:ac:11:00:08\n");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "0242AC110008");
}

TEST_F(MACAddressTest, IsZerosWithoutAPrimaryInterface) {
    write("proc/net/route", "Iface Destination\n");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "000000000000");
    write("proc/net/route", kRoute);  // whose interface has no address
    EXPECT_EQ(cmn::MACAddressBelow(root()), "000000000000");
}

TEST_F(MACAddressTest, IsEmptyWithoutATableOfRoutes) {
    EXPECT_EQ(cmn::MACAddressBelow(root()), "");
    fs::create_directories(folder_ / "proc/net/route");
    EXPECT_EQ(cmn::MACAddressBelow(root()), "");
}

using OSNameTest = FakeSystem;

TEST_F(OSNameTest, ComesFromTheAdministratorsFileElseFromTheDistributions) {
    EXPECT_EQ(cmn::OSNameBelow(root(), "m"), "Linux (m)");
    write("usr/lib/os-release", "NAME=Vendor\nVERSION_ID=1\n");
    EXPECT_EQ(cmn::OSNameBelow(root(), "m"), "Vendor 1 (m)");
    write("etc/os-release", "NAME=Admin\n");
    EXPECT_EQ(cmn::OSNameBelow(root(), "m"), "Admin (m)");
    write("etc/os-release", "");
    EXPECT_EQ(cmn::OSNameBelow(root(), "m"), "Linux (m)");
}

class OwnSystemTest : public FakeSystem {
 protected:
    void SetUp() override {
        if (!fake::OwnSystem::allowed())
            GTEST_SKIP() << "This user may not have a system of its own.";
    }
};

class ConsoleUserTest : public OwnSystemTest {
 protected:
    using Files = std::map<std::string, std::string>;

    // Name and home of the console user where logind has these files.
    static std::string answer(const Files& files) {
        return fake::AnswerInChild([&] {
            fake::OwnSystem::enter();
            fake::OwnSystem::hide("/run");
            for (const auto& [name, text] : files) {
                const auto file = fs::path("/run/systemd") / name;
                fs::create_directories(file.parent_path());
                cmn::StrToFile(text, file);
            }
            return cmn::GetCurrentUserName() + "|" + cmn::GetInstallationUserHomePath();
        });
    }
    static std::string root() {
        const auto* entry = getpwuid(0);
        return std::string(entry->pw_name) + "|" + entry->pw_dir;
    }
};

TEST_F(ConsoleUserTest, IsTheActiveUserOfTheFirstSeat) {
    EXPECT_EQ(answer({{"seats/seat0", "IS_VTCONSOLE=1\nACTIVE=c1\nACTIVE_UID=0\n"},
                      {"sessions/c1", "UID=0\nCLASS=user\n"}}),
              root());
    EXPECT_EQ(answer({{"seats/seat0", "ACTIVE=c1\nACTIVE_UID=0\n"}}), root());
}

TEST_F(ConsoleUserTest, IsNobodyAtTheLoginScreen) {
    EXPECT_EQ(answer({{"seats/seat0", "ACTIVE=c1\nACTIVE_UID=0\n"}, {"sessions/c1", "CLASS=greeter\n"}}),
              "|");
}

TEST_F(ConsoleUserTest, IsNobodyWithoutSeatSessionOrKnownUser) {
    EXPECT_EQ(answer({}), "|");
    EXPECT_EQ(answer({{"seats/seat1", "ACTIVE=c1\nACTIVE_UID=0\n"}, {"sessions/c1", "CLASS=user\n"}}), "|");
    for (const auto* seat : {"", "ACTIVE=c1\n", "ACTIVE_UID=0\n", "ACTIVE=c1\nACTIVE_UID=x\n",
                             "ACTIVE=c1\nACTIVE_UID=4294967288\n"})
        EXPECT_EQ(answer({{"seats/seat0", seat}, {"sessions/c1", "CLASS=user\n"}}), "|") << seat;
}

using UserDatabaseTest = OwnSystemTest;

TEST_F(UserDatabaseTest, FindsAnEntryThatIsLongerThanOthers) {
    const std::string home = "/home/" + std::string(5'000, 'h');
    write("passwd", "root:x:0:0::/root:/bin/sh\nlong:x:4321:1::" + home + ":/bin/sh\n");
    EXPECT_EQ(fake::AnswerInChild([&] {
                  fake::OwnSystem::enter();
                  fake::OwnSystem::replace("/etc/passwd", folder_ / "passwd");
                  const auto id = cmn::GetUIDByName("long");
                  const auto user = cmn::FindUser(cmn::UserId{4'321});
                  return std::to_string(id.value_or(0)) + (user ? user->name + user->home : "nobody");
              }),
              "4321long" + home);
}

class InstalledUserTest : public FakeSystem {
    fake::LogCapture log_;  // the listing is logged
};

constexpr auto kStartFile = "/.config/autostart/com.tessarin.UserAgent.desktop";

std::string InstalledUserBelow(const std::string& usersRoot) {
    return cmn::InstalledUserBelow(usersRoot, kStartFile + 1);
}

TEST_F(InstalledUserTest, IsTheFirstOfTwoInTheOrderOfTheListing) {
    fs::create_directories(folder_ / "adam");
    write(std::string("zoe") + kStartFile, "");
    write(std::string("berta") + kStartFile, "");
    EXPECT_EQ(InstalledUserBelow(root()), "berta");
}

TEST_F(InstalledUserTest, TakesAStartFileOfAnyType) {
    fs::create_directories(folder_ / ("carl" + std::string(kStartFile)));
    EXPECT_EQ(InstalledUserBelow(root()), "carl");
}

TEST_F(InstalledUserTest, IsEmptyWhenNobodyHasTheStartFile) {
    EXPECT_EQ(InstalledUserBelow(root()), "");
    fs::create_directories(folder_ / "adam");
    EXPECT_EQ(InstalledUserBelow(root()), "");
    EXPECT_EQ(InstalledUserBelow(root() + "/missing"), "");
}

TEST_F(FakeSystem, FolderThatCannotBeListedForAnyReasonIsNoAccess) {
    EXPECT_TRUE(cmn::CanListFolder(root()));
    EXPECT_FALSE(cmn::CanListFolder(root() + "/missing"));
    write("file", "");
    EXPECT_FALSE(cmn::CanListFolder(root() + "/file"));
    fs::permissions(folder_.path(), fs::perms::none);
    const bool isRoot = geteuid() == 0;
    ASSERT_TRUE(!isRoot || seteuid(65'534) == 0);
    const bool listed = cmn::CanListFolder(root());
    const bool granted = cmn::IsFullDiskAccessGranted();
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    fs::permissions(folder_.path(), fs::perms::owner_all);
    EXPECT_FALSE(listed);
    EXPECT_FALSE(granted);
}

TEST_F(FakeSystem, FullDiskAccessIsWhetherTheProbeFolderCanBeListed) {
    EXPECT_EQ(cmn::IsFullDiskAccessGranted(), cmn::CanListFolder("/root"));
}

TEST_F(FakeSystem, ReadsTheFirstMebibyteOfATextFile) {
    write("file", "text");
    EXPECT_EQ(cmn::ReadText(root() + "/file"), "text");
    write("file", std::string((1 << 20) + 5, 'a'));
    EXPECT_EQ(cmn::ReadText(root() + "/file"), std::string(1 << 20, 'a'));
    EXPECT_EQ(cmn::ReadText(root() + "/missing"), std::nullopt);
    EXPECT_EQ(cmn::ReadText(root()), std::nullopt);
}

TEST(MainThreadTest, IsTheThreadThatLoadedTheProgram) {
    EXPECT_EQ(cmn::GetMainThreadID(), g_idAtLoad);
    EXPECT_EQ(cmn::GetMainThreadID(), std::this_thread::get_id());
    EXPECT_TRUE(cmn::IsOnMainThread());
}

TEST(MainThreadTest, NoOtherThreadIsIt) {
    bool onMain = true;
    std::thread::id seen;
    std::thread other([&] {
        onMain = cmn::IsOnMainThread();
        seen = cmn::GetMainThreadID();
    });
    other.join();
    EXPECT_FALSE(onMain);
    EXPECT_EQ(seen, g_idAtLoad);
}

TEST(LocalTimeTest, IsEmptyForATimeWithoutCalendarForm) {
    EXPECT_EQ(cmn::GetLocalTime(0).value().tm_year, 70);
    EXPECT_FALSE(cmn::GetLocalTime(std::numeric_limits<std::time_t>::max()).has_value());
}

}  // namespace
