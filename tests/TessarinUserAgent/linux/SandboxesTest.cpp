#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "AtspiFixture.h"
#include "accessibility/Sandboxes.h"
#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "useragent/WindowList.h"
#include "windowlist/AtspiWindowList.h"

using useragent::Sandboxes;
namespace fs = std::filesystem;

namespace {

// Processes and sandboxes as the system's files tell them.
class SandboxesTest : public testing::Test {
 protected:
    void addProcess(int pid, int parent, const std::string& name, const std::string& sandbox = "") const {
        const fs::path process = folder / "proc" / std::to_string(pid);
        fs::create_directories(process / "root");
        std::ofstream(process / "comm") << name << '\n';
        std::ofstream(process / "stat") << pid << " (odd) name) 7) S " << parent << " 1 1 0";
        if (!sandbox.empty()) {
            std::ofstream(process / "root/.flatpak-info")
                << "[Application]\nname=org.example\n\n[Instance]\ninstance-id=" << sandbox
                << "\nbranch=stable\n";
        }
    }
    void addSandbox(const std::string& name, const std::string& info) const {
        fs::create_directories(folder / "instances" / name);
        std::ofstream(folder / "instances" / name / "bwrapinfo.json") << info;
    }

    fake::TemporaryFolder folder;
    const Sandboxes sandboxes{{folder / "proc", folder / "instances"}};
};

TEST_F(SandboxesTest, AProxyIsKnownByItsName) {
    addProcess(10, 1, "xdg-dbus-proxy");
    addProcess(11, 1, "firefox", "4711");
    EXPECT_TRUE(sandboxes.isProxy(10));
    EXPECT_FALSE(sandboxes.isProxy(11));
    EXPECT_FALSE(sandboxes.isProxy(12));
}

TEST_F(SandboxesTest, TheProgramIsBelowWhatMakesTheSandbox) {
    addSandbox("4711", R"({"child-pid": 21, "mnt-namespace": 4026532178})");
    addProcess(10, 1, "xdg-dbus-proxy", "4711");
    addProcess(20, 1, "bwrap");
    addProcess(21, 20, "bwrap", "4711");
    addProcess(22, 21, "sh", "4711");
    addProcess(23, 22, "firefox", "4711");
    addProcess(24, 23, "Web Content", "4711");
    addProcess(25, 22, "dconf", "4711");
    EXPECT_EQ(sandboxes.programBehind(10, {}), 23);
    EXPECT_EQ(sandboxes.programBehind(10, {20, 99}), 23);
}

TEST_F(SandboxesTest, AProcessOfTheSandboxThatIsLookedForComesFirst) {
    addSandbox("4711", R"({"child-pid": 21})");
    addProcess(10, 1, "xdg-dbus-proxy", "4711");
    addProcess(21, 1, "launcher", "4711");
    addProcess(22, 21, "chrome", "4711");
    addProcess(32, 1, "chrome", "4712");
    EXPECT_EQ(sandboxes.programBehind(10, {32, 22}), 22);
    EXPECT_EQ(sandboxes.programBehind(10, {32}), 21);
}

TEST_F(SandboxesTest, AShellThatHasNoChildIsTheProgram) {
    addSandbox("4711", R"({"child-pid": 21})");
    addProcess(10, 1, "xdg-dbus-proxy", "4711");
    addProcess(21, 1, "bash", "4711");
    EXPECT_EQ(sandboxes.programBehind(10, {}), 21);
}

TEST_F(SandboxesTest, NobodyIsKnownBehindAProxyWithoutASandboxOrItsFile) {
    addProcess(10, 1, "xdg-dbus-proxy");
    addProcess(11, 1, "xdg-dbus-proxy", "4711");
    EXPECT_EQ(sandboxes.programBehind(10, {11}), 0);
    EXPECT_EQ(sandboxes.programBehind(11, {}), 0);
    for (const char* const info : {"", "[]", "{}", "{\"child-pid\": \"21\"}", "{\"child-pid\": 21", "null"}) {
        addSandbox("4711", info);
        EXPECT_EQ(sandboxes.programBehind(11, {}), 0) << info;
    }
}

TEST_F(SandboxesTest, AProcessThatGotTheNumberOfOneThatIsGoneIsNotTaken) {
    addSandbox("4711", R"({"child-pid": 21})");
    addProcess(10, 1, "xdg-dbus-proxy", "4711");
    addProcess(21, 1, "editor");
    EXPECT_EQ(sandboxes.programBehind(10, {}), 0);
}

TEST_F(SandboxesTest, ASandboxWhoseNameLeadsElsewhereIsNone) {
    addSandbox("4711", R"({"child-pid": 21})");
    addProcess(10, 1, "xdg-dbus-proxy", "../instances/4711");
    addProcess(21, 1, "firefox", "../instances/4711");
    EXPECT_EQ(sandboxes.programBehind(10, {21}), 0);
}

TEST_F(SandboxesTest, FilesThatAreNoFilesAreNotReadThrough) {
    addSandbox("4711", R"({"child-pid": 21})");
    addProcess(21, 1, "firefox", "4711");
    addProcess(10, 1, "xdg-dbus-proxy");
    fs::create_symlink(folder / "proc/21/root/.flatpak-info", folder / "proc/10/root/.flatpak-info");
    EXPECT_EQ(sandboxes.programBehind(10, {}), 0);
    fs::remove(folder / "proc/10/root/.flatpak-info");
    ASSERT_EQ(::mkfifo((folder / "proc/10/root/.flatpak-info").c_str(), 0600), 0);
    EXPECT_EQ(sandboxes.programBehind(10, {}), 0) << "or it waits for ever";
}

// A browser in a sandbox that is put together as Flatpak does it: a file system of its own with a file that
// names the sandbox, processes of its own, and the accessibility bus through a proxy in a sandbox of its own.
class SandboxedBrowserTest : public AtspiFixture {
 protected:
    SandboxedBrowserTest() {
        fs::create_directories(instance());
        std::ofstream(folder / "info") << "[Instance]\ninstance-id=4711\n";
    }

    fs::path instance() const { return folder / ".flatpak/4711"; }
    std::string socket() const { return folder / "a11y"; }

    std::string sandbox(const std::string& more) const {
        // The sanitizers' options name files that are not in there.
        return "exec bwrap --unsetenv TSAN_OPTIONS --unsetenv LSAN_OPTIONS --die-with-parent --ro-bind /usr "
               "/usr --ro-bind /etc /etc --symlink usr/bin /bin "
               "--symlink usr/lib /lib --symlink usr/lib64 /lib64 --dev /dev --bind /tmp /tmp --ro-bind " +
               fs::path(ATSPI_PROGRAM).parent_path().string() + " " +
               fs::path(ATSPI_PROGRAM).parent_path().string() + " --ro-bind " + (folder / "info").string() +
               " /.flatpak-info " + more;
    }
    static std::unique_ptr<fake::ChildProcess> run(const std::string& command) {
        return std::make_unique<fake::ChildProcess>(std::vector<std::string>{"bash", "-c", command});
    }
    static bool canMakeSandboxes() {
        return run("command -v xdg-dbus-proxy && bwrap --dev-bind / / --unshare-pid true")->wait() == 0;
    }

    // The browser's bus name; empty when it did not come up.
    std::string startBrowser() {
        proxy = run(sandbox("--proc /proc --unshare-pid xdg-dbus-proxy '" +
                            desktop.accessibilityBus.address() + "' " + socket()));
        if (!fake::WaitFor([&] { return fs::exists(socket()); })) {
            return {};
        }
        browser =
            run("exec 3>" + (instance() / "bwrapinfo.json").string() + "; " +
                sandbox("--proc /proc --unshare-pid --info-fd 3 " ATSPI_PROGRAM " unix:path=" + socket()));
        const std::string busName = browser->readLine().value_or("");
        if (busName.empty()) {
            return {};
        }
        browser->write("name Firefox\nwindow Page|start\n");
        browser->readLine();
        browser->readLine();
        desktop.registerApplication(busName);
        return busName;
    }

    fake::TemporaryFolder folder;
    const fake::Environment runtimeFolder{"XDG_RUNTIME_DIR", folder.path().string()};
    std::unique_ptr<fake::ChildProcess> proxy;
    std::unique_ptr<fake::ChildProcess> browser;
    useragent::AtspiWindowList list{accessibility->bus(), {"Firefox"}};
};

TEST_F(SandboxedBrowserTest, IsKnownByItsProcessOutsideOfTheSandbox) {
    if (!canMakeSandboxes()) {
        GTEST_SKIP() << "bwrap or xdg-dbus-proxy is not there, or the system lets nobody make a sandbox";
    }
    ASSERT_NE(startBrowser(), "") << proxy->errors() << (browser ? browser->errors() : "");
    const auto windows = list.copyOnScreenWindows();
    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 1U);
    EXPECT_EQ(windows->front().ownerName, "Firefox");
    const std::int32_t pid = windows->front().ownerPid;
    std::string name;
    std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> name;
    EXPECT_EQ(name, "AtspiProgram");
    const auto field = addressField(pid);
    ASSERT_NE(field, nullptr) << "whoever got the process id from elsewhere does not find it";
    EXPECT_EQ(text(field, useragent::kValueAttribute), "start");
    EXPECT_FALSE(log.contains("runs in a sandbox"));
}

TEST_F(SandboxedBrowserTest, ThatCannotBeFoundIsSaidOnceAndLeftOut) {
    if (!canMakeSandboxes()) {
        GTEST_SKIP() << "bwrap or xdg-dbus-proxy is not there, or the system lets nobody make a sandbox";
    }
    ASSERT_NE(startBrowser(), "") << proxy->errors() << (browser ? browser->errors() : "");
    fs::remove(instance() / "bwrapinfo.json");
    for (int i = 0; i < 3; ++i) {
        const auto windows = list.copyOnScreenWindows();
        ASSERT_TRUE(windows);
        EXPECT_TRUE(windows->empty());
    }
    EXPECT_EQ(log.count("runs in a sandbox"), 1U);
}

}  // namespace
