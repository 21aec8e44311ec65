#include <csignal>
#include <filesystem>
#include <thread>

#include "AtspiFixture.h"
#include "accessibility/AccessibilityBus.h"
#include "common/ScopedAction.h"
#include "support/ChildProcess.h"
#include "useragent/WindowList.h"
#include "windowlist/AtspiWindowList.h"

using useragent::WindowInfo;

namespace {

const std::vector<std::string> kBrowsers{"Google Chrome", "Firefox"};

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
    std::string pid() const { return std::to_string(process_.pid()); }

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
    explicit AtspiWindowListTest(std::chrono::milliseconds callDeadline = std::chrono::seconds(1))
        : AtspiFixture(callDeadline) {}

    // Sooner or later: a busy machine may need longer than one deadline for the first answers.
    bool lists(const std::vector<std::string>& expected) {
        return fake::WaitFor([&] { return owners() == expected; });
    }

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

    fake::AtspiNode frame(std::uint64_t states, const std::string& title = "Page") {
        fake::AtspiNode node;
        node.role = 23;
        node.states = states;
        node.name = title;
        return node;
    }

    void nameApplication(fake::AtspiApplication& application, const std::string& name) {
        application.change(fake::AtspiApplication::kRoot, [&](fake::AtspiNode& root) { root.name = name; });
    }

    std::unique_ptr<useragent::WindowList> list =
        std::make_unique<useragent::AtspiWindowList>(accessibility->bus(), kBrowsers);
    fake::AtspiApplication editor{desktop.accessibilityBus.address()};
    fake::AtspiApplication browser{desktop.accessibilityBus.address()};
};

// Of applications that answer, however slow the machine is.
class AtspiWindowsTest : public AtspiWindowListTest {
 protected:
    AtspiWindowsTest() : AtspiWindowListTest(std::chrono::seconds(10)) {}
};

TEST_F(AtspiWindowsTest, ListsTheShowingFramesOfBrowsersWithTheProductsNames) {
    nameApplication(editor, "Text Editor");
    nameApplication(browser, "Chromium");
    editor.addWindow("Notes", "");
    browser.addWindow("One", "");
    browser.addWindow("Two", "");
    desktop.registerApplication(editor.busName());
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), (std::vector{own("Google Chrome"), own("Google Chrome")}));
}

TEST_F(AtspiWindowsTest, ListsTheSameOfABrowserThatCannotSelect) {
    nameApplication(browser, "Firefox");
    browser.setSelects(false);
    browser.add(fake::AtspiApplication::kRoot, {});
    browser.add(fake::AtspiApplication::kRoot, frame(0));
    browser.addWindow("One", "");
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
    EXPECT_EQ(browser.callsOf("GetMatches"), 1) << "it was not told to try again";
}

TEST_F(AtspiWindowsTest, PutsTheActiveApplicationInFront) {
    nameApplication(editor, "Chromium");
    nameApplication(browser, "Firefox");
    editor.addWindow("Notes", "");
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing | fake::kActive));
    desktop.registerApplication(editor.busName());
    desktop.registerApplication(browser.busName());
    for (const bool selects : {true, false}) {
        browser.setSelects(selects);
        EXPECT_EQ(owners(), (std::vector{own("Firefox"), own("Google Chrome")})) << selects;
    }
}

TEST_F(AtspiWindowsTest, OfTwoProcessesOfOneNameTheOneThatWasActiveLastStaysInFront) {
    Program first(desktop, "Firefox");
    nameApplication(browser, "Firefox");
    const std::string window = browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing));
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), (std::vector{first.owner(), own("Firefox")})) << "nobody was active yet";
    browser.change(window, [](fake::AtspiNode& node) { node.states = fake::kShowing | fake::kActive; });
    EXPECT_EQ(owners(), (std::vector{own("Firefox"), first.owner()}));
    // The user goes to a program that is no browser.
    browser.change(window, [](fake::AtspiNode& node) { node.states = fake::kShowing; });
    EXPECT_EQ(owners(), (std::vector{own("Firefox"), first.owner()}));
    EXPECT_EQ(owners(), (std::vector{own("Firefox"), first.owner()}));
}

TEST_F(AtspiWindowsTest, LeavesOutHiddenAndUntitledFramesAndWhatIsNoFrame) {
    nameApplication(browser, "Firefox");
    browser.add(fake::AtspiApplication::kRoot, frame(0));
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing, ""));
    browser.add(fake::AtspiApplication::kRoot, {});
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(AtspiWindowsTest, AWindowWhoseTitleComesLateIsFound) {
    nameApplication(browser, "Chromium");
    const std::string window = browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing, ""));
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing, ""));  // a bubble
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector<std::string>{});
    browser.change(window, [](fake::AtspiNode& node) { node.name = "Page - Chromium"; });
    EXPECT_EQ(owners(), std::vector{own("Google Chrome")});
    browser.change(window, [](fake::AtspiNode& node) { node.states = fake::kIconified; });
    EXPECT_EQ(owners(), std::vector<std::string>{}) << "the bubble still shows";
}

TEST_F(AtspiWindowsTest, AnApplicationWhoseNameComesLateIsFound) {
    nameApplication(browser, "");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    EXPECT_EQ(owners(), std::vector<std::string>{});
    nameApplication(browser, "Firefox");
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
}

TEST_F(AtspiWindowListTest, AnApplicationThatDidNotAnswerAtFirstIsFound) {
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    browser.hold();
    EXPECT_EQ(owners(), std::vector<std::string>{});
    EXPECT_EQ(owners(), std::vector<std::string>{});
    browser.release();
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Firefox")}; }));
}

TEST_F(AtspiWindowsTest, FifteenOtherProgramsAreCalledAtTheFirstLookOnly) {
    std::vector<std::unique_ptr<fake::AtspiApplication>> others;
    for (int i = 0; i < 15; ++i) {
        others.push_back(std::make_unique<fake::AtspiApplication>(desktop.accessibilityBus.address()));
        nameApplication(*others.back(), "Program " + std::to_string(i));
        others.back()->addWindow("Window", "");
        desktop.registerApplication(others.back()->busName());
    }
    nameApplication(browser, "Chromium");
    browser.addWindow("Page - Chromium", "start");
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing, ""));  // as it always has
    browser.add(fake::AtspiApplication::kRoot, frame(fake::kShowing, ""));
    desktop.registerApplication(browser.busName());
    const auto callsOfOthers = [&] {
        std::vector<int> calls;
        for (const auto& other : others) {
            calls.push_back(other->calls());
        }
        return calls;
    };
    EXPECT_EQ(owners(), std::vector{own("Google Chrome")});
    EXPECT_EQ(callsOfOthers(), std::vector<int>(15, 1));
    constexpr int kLooks = 10;
    const int before = desktop.calls() + browser.calls();
    for (int i = 0; i < kLooks; ++i) {
        EXPECT_EQ(owners(), std::vector{own("Google Chrome")});
    }
    EXPECT_EQ(callsOfOthers(), std::vector<int>(15, 1));
    const int calls = desktop.calls() + browser.calls() - before;
    EXPECT_GE(calls, 3 * kLooks) << "registry, session and browser are asked at each look";
    EXPECT_LE(calls, 6 * kLooks);
    RecordProperty("callsALook", calls / kLooks);
}

TEST_F(AtspiWindowsTest, AnApplicationThatTheRegistryDropsIsForgotten) {
    nameApplication(editor, "Text Editor");
    desktop.registerApplication(editor.busName());
    owners();
    owners();
    EXPECT_EQ(editor.calls(), 1);
    desktop.unregisterApplication(editor.busName());
    owners();
    desktop.registerApplication(editor.busName());
    owners();
    EXPECT_EQ(editor.calls(), 2);
}

TEST_F(AtspiWindowsTest, ABrowserThatWasOnlyListedLeavesNothingAtTheRegistryWhenItEnds) {
    Program firefox(desktop, "Firefox");
    ASSERT_EQ(owners(), std::vector<std::string>{firefox.owner()});
    EXPECT_EQ(desktop.registeredEvents(), std::vector<std::string>{"window:activate " + firefox.busName()});
    firefox.kill();
    EXPECT_TRUE(fake::WaitFor([&] { return desktop.registeredEvents().empty(); }));
}

TEST_F(AtspiWindowsTest, NothingStaysWantedOfAnApplicationThatEndedBefore) {
    const auto bus = accessibility->bus().lock();
    const auto session = bus->session(bus->deadline());
    ASSERT_TRUE(session);
    EXPECT_EQ(session->events->add({"window:activate"}, ":1.4711", bus->deadline()),
              useragent::AXError::cannotComplete);
    EXPECT_TRUE(fake::WaitFor([&] { return desktop.registeredEvents().empty(); }));
    session->events->repeat();
    nameApplication(browser, "Firefox");
    desktop.registerApplication(browser.busName());
    owners();
    EXPECT_EQ(desktop.registeredEvents(), std::vector<std::string>{"window:activate " + browser.busName()});
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
    ASSERT_TRUE(lists({own("Firefox")}));
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
    EXPECT_EQ(log.count("process id " + stopped.pid() + " does not answer"), 1U);
}

TEST_F(AtspiWindowListTest, ABrowserThatStopsHidesNeitherItselfNorAHealthyOne) {
    const Program other(desktop, "Google Chrome");
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
    for (const char* const member : {"GetMatches", "GetState", "GetChildren"}) {
        browser.setSelects(std::string(member) == "GetMatches");
        ASSERT_TRUE(lists({own("Firefox")}));
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
    ASSERT_TRUE(lists({own("Firefox")}));
    desktop.sessionBus.freeze();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(owners(), std::vector{own("Firefox")});
    }
}

TEST_F(AtspiWindowListTest, IsAbsentWhileTheBusOrTheRegistryDoesNotAnswer) {
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(browser.busName());
    ASSERT_TRUE(lists({own("Firefox")}));
    desktop.accessibilityBus.freeze();
    EXPECT_EQ(owners(), std::nullopt);
    desktop.accessibilityBus.thaw();
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Firefox")}; }));
    desktop.dropRegistry();
    EXPECT_EQ(owners(), std::nullopt);
}

TEST_F(AtspiWindowsTest, ARegistryThatIsNotThereIsSaidOnceWithTheRemedy) {
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
    useragent::AtspiWindowList list(accessibility.bus(), kBrowsers);
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(log.count("It ends at each question"), 1U) << "it does not, or nobody said so";
    dispatch->stop();
}

TEST_F(AtspiWindowListTest, KeepsTheWindowsOfAnApplicationThatNowClaimsAHundredThousand) {
    nameApplication(editor, "Chromium");
    editor.addWindow("Notes", "");
    nameApplication(browser, "Firefox");
    browser.addWindow("Page", "start");
    desktop.registerApplication(editor.busName());
    desktop.registerApplication(browser.busName());
    const std::vector<std::string> expected{own("Google Chrome"), own("Firefox")};
    EXPECT_EQ(owners(), expected);
    const int before = editor.callsOf("Get");
    for (int i = 0; i < 100'000; ++i) {
        editor.add(fake::AtspiApplication::kRoot, frame(fake::kShowing));
    }
    EXPECT_EQ(owners(), expected);
    EXPECT_EQ(editor.callsOf("Get"), before) << "so many are not asked";
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
