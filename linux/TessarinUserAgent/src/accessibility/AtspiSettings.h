#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "useragent/Deadlines.h"
#include "useragent/ToldOnce.h"

namespace useragent {

class EarlyLooks;

// A process's windows on screen.
struct OnScreen {
    std::vector<std::string> titles;  // front to back
    bool isInFront = false;           // whether the first of them is in front of all others
};

// What is told of the windows on screen. Called on any thread; do not wait.
struct ScreenEvents {
    std::function<void()> changed;   // windows have come, gone, were hidden or shown, or changed their order
    std::function<void()> retitled;  // some have other titles
};

// What is known of the windows on screen beside what their programs say. Any thread.
struct Screen {
    // Of that process; nothing when it cannot be told. Waits as long as a window list does.
    std::function<OnScreen(std::int32_t pid)> windows;
    // Whether a program came to the front, or another process of one, that the last polling cycle did not see
    // there. Waits as long.
    std::function<bool()> hasOthersInFront;
    std::function<void(ScreenEvents)> tellChanges;  // from now on
};

// Where the accessibility end finds its buses and how long it waits.
struct AtspiSettings {
    std::string sessionBusAddress;
    std::string accessibilityBusAddress;  // empty: as the session says
    std::chrono::milliseconds callDeadline = kBrowserCallDeadline;
    Screen screen = {};                           // empty where nobody knows
    std::shared_ptr<EarlyLooks> earlyLooks = {};  // null where cycles begin at their time only
    ToldOnce told = {};  // where it is kept that the user was asked to switch accessibility on
};

// As the environment of the process says.
AtspiSettings SettingsOfThisSession();

}  // namespace useragent
