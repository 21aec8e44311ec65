#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AtspiApplication.h"
#include "AtspiDesktop.h"
#include "accessibility/AtspiAccessibility.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"
#include "useragent/Accessibility.h"

// The deadline of a call in tests of what happens without an answer.
inline constexpr std::chrono::milliseconds kDeadline{500};

// Longer than one deadline, shorter than several in a row.
inline constexpr std::chrono::milliseconds kOneWait = 4 * kDeadline;

// What a test says is on screen; nothing at first. Shared with threads of the accessibility end.
class FakeScreen {
 public:
    useragent::Screen port();
    // As when the window manager has put them in this order, front to back.
    void show(const std::vector<std::string>& titles, bool isInFront = false);
    // As when some window has another title.
    void retitle();
    int timesAsked() const;

 private:
    struct State;
    const std::shared_ptr<State> state_ = MakeState();
    static std::shared_ptr<State> MakeState();
};

// Our accessibility end on a desktop that exists only in the test, and how tests look at it.
class AtspiFixture : public testing::Test {
 protected:
    // Tests of what happens without an answer shorten the deadline; the others must not depend on the
    // machine's load. `screen` in place of the fake one, where that is not enough.
    explicit AtspiFixture(std::chrono::milliseconds callDeadline = std::chrono::seconds(10),
                          const std::function<void()>& beginCycle = {},
                          std::optional<useragent::Screen> screen = {});
    ~AtspiFixture() override;

    // The text of a string attribute, or nothing with the error in `error`.
    std::optional<std::string> text(const useragent::AXElementRef& element, const std::string& attribute);
    std::optional<std::vector<useragent::AXElementRef>> children(const useragent::AXElementRef& element);
    // As the watcher gets them in a polling cycle that has just begun.
    useragent::AXElementRef mainWindow(std::int32_t pid = getpid());
    useragent::AXElementRef foundField(std::int32_t pid = getpid());
    // The same field without what was read along with it.
    useragent::AXElementRef addressField(std::int32_t pid = getpid());
    // An object of the tree.
    useragent::AXElementRef object(const std::string& busName, const std::string& path,
                                   std::int32_t pid = getpid());

    // As once a polling cycle.
    void look(const std::vector<std::int32_t>& pids);

    static std::chrono::milliseconds timeOf(const std::function<void()>& action);

    fake::LogCapture log;
    fake::AtspiDesktop desktop;
    FakeScreen screen;
    std::shared_ptr<cmn::LinuxDispatch> dispatch = std::make_shared<cmn::LinuxDispatch>();
    std::shared_ptr<useragent::AtspiAccessibility> accessibility;
    useragent::AXError error = useragent::AXError::success;  // of the last read
};

// Notifications as they arrive.
class Notifications {
 public:
    useragent::AXObserverCallback callback();

    struct Entry {
        useragent::AXElementRef element;
        std::string name;
    };
    std::vector<Entry> entries;  // main thread
};
