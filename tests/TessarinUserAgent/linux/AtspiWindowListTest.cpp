#include <csignal>

#include "AtspiFixture.h"
#include "support/ChildProcess.h"
#include "useragent/WindowList.h"

using useragent::WindowInfo;

namespace {

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

    std::unique_ptr<useragent::WindowList> list = accessibility->createWindowList();
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
    fake::ChildProcess process({ATSPI_PROGRAM, desktop.accessibilityBus.address()});
    const std::string busName = process.readLine().value_or("");
    process.write("name Firefox\nwindow Page|start\n");
    process.readLine();
    process.readLine();
    desktop.registerApplication(busName);
    const std::vector<std::string> expected{"Firefox " + std::to_string(process.pid())};
    EXPECT_EQ(owners(), expected);
    process.signal(SIGSTOP);
    EXPECT_EQ(owners(), expected);
    EXPECT_EQ(owners(), expected);
    process.signal(SIGKILL);
    process.wait();
    desktop.unregisterApplication(busName);
    EXPECT_EQ(owners(), std::vector<std::string>{});
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
