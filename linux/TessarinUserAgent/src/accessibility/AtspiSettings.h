#pragma once

#include <chrono>
#include <string>

#include "useragent/Deadlines.h"

namespace useragent {

// Where the accessibility end finds its buses and how long it waits.
struct AtspiSettings {
    std::string sessionBusAddress;
    std::string accessibilityBusAddress;  // empty: as the session says
    std::chrono::milliseconds callDeadline = kBrowserCallDeadline;
};

// As the environment of the process says.
AtspiSettings SettingsOfThisSession();

}  // namespace useragent
