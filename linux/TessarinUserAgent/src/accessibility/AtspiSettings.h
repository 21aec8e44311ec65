#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "useragent/Deadlines.h"

namespace useragent {

// What is known of the windows on screen beside what their programs say. Any thread.
struct Screen {
    // The titles of a process's windows, front to back; nothing when that cannot be told. Waits as long as a
    // window list does.
    std::function<std::vector<std::string>(std::int32_t pid)> titles;
    // From now on calls `changed`, which does not wait, when windows have come, gone or changed their order.
    std::function<void(std::function<void()> changed)> tellChanges;
};

// Where the accessibility end finds its buses and how long it waits.
struct AtspiSettings {
    std::string sessionBusAddress;
    std::string accessibilityBusAddress;  // empty: as the session says
    std::chrono::milliseconds callDeadline = kBrowserCallDeadline;
    Screen screen = {};  // empty where nobody knows
};

// As the environment of the process says.
AtspiSettings SettingsOfThisSession();

}  // namespace useragent
