#pragma once

#include <string>

namespace useragent {

// Which displays of the session can be tried.
struct Displays {
    bool x11 = false;
    bool wayland = false;
};

// What the toolkit is to try, in this order, as it takes it after "-platform": what was asked for (its
// variable QT_QPA_PLATFORM; empty: what the session has), but no display that is not there, and in the end
// a platform that shows nothing. It ends a program that it finds no platform for.
std::string PlatformsToTry(const std::string& wanted, const Displays& displays);

// Why nothing can be shown, and the remedy, for the log; empty when something can, or when it was asked for
// so. `tried` is what `PlatformsToTry` said, `taken` the platform that the toolkit runs on now.
std::string WhyNothingIsShown(const std::string& wanted, const std::string& tried, const std::string& taken);

}  // namespace useragent
