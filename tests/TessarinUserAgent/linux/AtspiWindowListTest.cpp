#include <csignal>
#include <filesystem>
#include <thread>

#include "AtspiFixture.h"
#include "common/ScopedAction.h"
#include "support/ChildProcess.h"
#include "useragent/WindowList.h"
#include "windowlist/AtspiWindowList.h"

using useragent::WindowInfo;

namespace {

// An application with one window that can be stopped and killed.
class Program {
 public:
    Program(fake::AtspiDesktop& desktop, const std::string& name)
        : process_({ATSPI_PROGRAM, desktop.accessibilityBus.address()}),
          busName_(process_.readLine().value_or("")),
          owner_(name + " " + std::to_string(process_.pid())) {
        process_.write("name " + name + "\nwindow Page|start\n");
        process_.readLine();
        process_.readLine();
        desktop.registerApplication(busName_);
    }

    const std::string& busName() const { return busName_; }
    const std::string& owner() const { return owner_; }

    void stop() const {
        process_.signal(SIGSTOP);
        // The signal does its work in its own time.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    void kill() {
        process_.signal(SIGKILL);
        process_.wait();
    }

 private:
    fake::ChildProcess process_;
    const std::string busName_;
    const std::string owner_;
};

class AtspiWindowListTest : public AtspiFixture {
 protected:
    AtspiWindowListTest() : AtspiFixture(std::chrono::seconds(1)) {}

    // "owner pid", in order.
    std::optional<std::vector<std::string>> owners() {
        const auto windows = list->copyOnScreenWindows();
        if (!windows) {
            return std::nullopt;
        }
        std::vector<std::string> result;
        for (const WindowInfo& window : *windows) {
            result.push_back(window.ownerName.value_or("?") + " " + std::to_string(window.ownerPid));
        }
        return result;
    }

    std::string own(const std::string& name) { return name + " " + std::to_string(getpid()); }

    fake::AtspiNode frame(std::uint64_t states) {
        fake::AtspiNode node;
        node.role = 23;
        node.states = states;
        return node;
    }

    void nameApplication(fake::AtspiApplication& application, const std::string& name) {
        application.change(fake::AtspiApplication::kRoot, [&](fake::AtspiNode& root) { root.name = name; });
    }

    std::unique_ptr<useragent::WindowList> list =
        std::make_unique<useragent::AtspiWindowList>(accessibility->bus());
    fake::AtspiApplication editor{desktop.accessibilityBus.address()};
    fake::AtspiApplication browser{desktop.accessibilityBus.address()};
};

TEST_F(AtspiWindowListTest, ListsTheShowingFramesWithTheProductsNames) {
    nameApplication(editor, "Text Editor");
    nameApplication(browser, "Chromium");
    editor.addWindow("Notes", "");
    browser.addWindow("One", "");
    browser.addWindow("Two", "");
    desktop.registerApplication(editor.busName());
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), (std::vector{own("Text Editor"), own("Google Chrome"), own("Google Chrome")}));
}

TEST_F(AtspiWindowListTest, PutsTheActiveApplicationInFront) {
    nameApplication(editor, "Text Editor");
    nameApplication(browser, "Firefox");
    editor.addWindow("Notes", "");
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing | fake::kActive));
    desktop.registerApplication(editor.busName());
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), (std::vector{own("Firefox"), own("Text Editor")}));
}

TEST_F(AtspiWindowListTest, LeavesOutHiddenAndMinimisedFramesAndWhatIsNoFrame) {
    nameApplication(browser, "Firefox");
    browser.add(fake::AtspiApplication::kRoot, frame(0));
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing | fake::kIconified));
    browser.add(fake::AtspiApplication::kRoot, {});
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(AtspiWindowListTest, KeepsTheWindowsOfAnApplicationThatDoesNotAnswer) {
    Program firefox(desktop, "Firefox");
    const std::vector<std::string> expected{firefox.owner()};
    EXPECT_EQ(owners(), expected);
    firefox.stop();
    EXPECT_EQ(owners(), expected);
    EXPECT_EQ(owners(), expected);
    firefox.kill();
    EXPECT_EQ(owners(), std::vector<std::string>{}) << "who has left the bus is not among those that hang";
    desktop.unregisterApplication(firefox.busName());
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(AtspiWindowListTest, AStoppedEditorHidesNoHealthyBrowser) {
    const Program stopped(desktop, "Text Editor");
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    stopped.stop();
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
    EXPECT_EQ(log.count("does not answer"), 1U);
}

TEST_F(AtspiWindowListTest, AnEditorThatStopsHidesNeitherItselfNorAHealthyBrowser) {
    const Program other(desktop, "Text Editor");
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    const std::vector<std::string> expected{other.owner(), own("Firefox")};
    EXPECT_EQ(owners(), expected);
    other.stop();
    EXPECT_EQ(owners(), expected);
    EXPECT_EQ(owners(), expected);
}

TEST_F(AtspiWindowListTest, KeepsTheWindowsOfAnApplicationThatAnswersOnlyInPart) {
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    for (const char* const member : {"GetState", "GetChildren"}) {
        EXPECT_EQ(owners(), std::vector{own("Firefox")});
        browser.overrideMethod(member,
                               [](const QDBusMessage&) -> std::unique_ptr<QDBusMessage> { return nullptr; });
        EXPECT_EQ(owners(), std::vector{own("Firefox")}) << member;
        browser.resetMethod(member);
    }
}

TEST_F(AtspiWindowListTest, AFrozenSessionBusChangesNothing) {
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
    desktop.sessionBus.freeze();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(owners(), std::vector{own("Firefox")});
    }
}

TEST_F(AtspiWindowListTest, IsAbsentWhileTheBusOrTheRegistryDoesNotAnswer) {
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector{own("Fake")});
    desktop.accessibilityBus.freeze();
    EXPECT_EQ(owners(), std::nullopt);
    desktop.accessibilityBus.thaw();
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Fake")}; }));
    desktop.dropRegistry();
    EXPECT_EQ(owners(), std::nullopt);
}

TEST_F(AtspiWindowListTest, ARegistryThatIsNotThereIsSaidOnceWithTheRemedy) {
    EXPECT_NE(owners(), std::nullopt);
    desktop.dropRegistry();
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(log.count("The accessibility registry cannot be asked"), 1U);
    EXPECT_EQ(log.count("XDG_SESSION_TYPE=wayland"), 1U);
    desktop.restartRegistry();
    EXPECT_NE(owners(), std::nullopt);
    EXPECT_EQ(log.count("The accessibility registry answers again"), 1U);
}

TEST_F(AtspiWindowListTest, ARegistryThatHangsIsSaidOnceAndOthersAreNotBlamed) {
    desktop.holdRegistry();
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(log.count("The accessibility registry does not answer"), 1U);
    EXPECT_EQ(log.count("XDG_SESSION_TYPE"), 0U);
}

// The desktop's own registry, where the environment promises an X server that is not there.
TEST(AtspiRegistry, ThatEndsAtEachQuestionIsSaidOnceWithTheRemedy) {
    const std::string launcher = "/usr/libexec/at-spi-bus-launcher";
    if (!std::filesystem::exists(launcher)) {
        GTEST_SKIP() << "there is no " << launcher;
    }
    fake::LogCapture log;
    const fake::TemporaryFolder folder;
    const fake::PrivateBus session;
    fake::ChildProcess service({"env", "-u", "WAYLAND_DISPLAY", "-u", "XDG_SESSION_TYPE", launcher,
                                "--a11y=1", "--launch-immediately"},
                               {{"DBUS_SESSION_BUS_ADDRESS", session.address()},
                                {"XDG_RUNTIME_DIR", folder.path()},
                                {"HOME", folder.path()},
                                {"DISPLAY", ":99999"}});
    const cmn::ScopedAction end([&] {  // it takes its bus along
        service.signal(SIGTERM);
        service.wait();
    });
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    useragent::AtspiAccessibility accessibility(dispatch, {session.address(), {}, std::chrono::seconds(10)});
    ASSERT_TRUE(fake::WaitFor([&] { return accessibility.isProcessTrusted(); }));
    useragent::AtspiWindowList list(accessibility.bus());
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(log.count("It ends at each question"), 1U) << "it does not, or nobody said so";
    dispatch->stop();
}

TEST_F(AtspiWindowListTest, KeepsTheWindowsOfAnApplicationThatNowClaimsAHundredThousand) {
    nameApplication(editor, "Text Editor");
    editor.addWindow("Notes", "");
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(editor.busName());
    desktop.registerApplication(browser.busName());
    const std::vector<std::string> expected{own("Text Editor"), own("Firefox")};
    EXPECT_EQ(owners(), expected);
    const int before = editor.callsOf("GetState");
    for (int i = 0; i < 100'000; ++i) {
        editor.add(fake::AtspiApplication::kRoot, frame(fake::kShowing));
    }
    EXPECT_EQ(owners(), expected);
    EXPECT_EQ(editor.callsOf("GetState"), before) << "so many are not asked";
}

TEST_F(AtspiWindowListTest, IsAbsentWithoutTheBus) {
    desktop.dropBus();
    EXPECT_EQ(owners(), std::nullopt);
    desktop.returnBus();
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(AtspiWindowListTest, IsAbsentWhileAccessibilityIsOff) {
    desktop.isEnabled = false;
    EXPECT_EQ(owners(), std::nullopt);
}

}  // namespace
