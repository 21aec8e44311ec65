#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "useragent/Deadlines.h"

namespace useragent {

// The title on screen of a process's window that is in front of its others; empty when that cannot be told.
// Waits as long as a window list does; any thread.
using FrontTitle = std::function<std::string(std::int32_t pid)>;

// Where the accessibility end finds its buses and how long it waits.
struct AtspiSettings {
    std::string sessionBusAddress;
    std::string accessibilityBusAddress;  // empty: as the session says
    std::chrono::milliseconds callDeadline = kBrowserCallDeadline;
    FrontTitle frontTitle = nullptr;  // null where nobody knows
};

// As the environment of the process says.
AtspiSettings SettingsOfThisSession();

}  // namespace useragent
