#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "useragent/Accessibility.h"

namespace useragent {

// What the watcher keeps for one running browser. While it is being set up, name, process id and observers
// belong to the thread that does that; everything else is guarded by the watcher's mutex.
struct BrowserURLWatcherContext {
    BrowserURLWatcherContext(std::string browser, std::int32_t process);
    BrowserURLWatcherContext(const BrowserURLWatcherContext&) = delete;
    BrowserURLWatcherContext& operator=(const BrowserURLWatcherContext&) = delete;

    // Takes both observers off the main run loop, the main window's first.
    ~BrowserURLWatcherContext();

    std::string name;
    std::int32_t pid = 0;
    std::unique_ptr<AXObserver> valueChangedObserver;       // null until subscribed
    std::unique_ptr<AXObserver> mainWindowChangedObserver;  // null until subscribed
    std::string url;                                        // last text read from the field, UTF-8

    // Notifications that came while it was being set up are served when it is.
    bool isSetUp = false;
    std::chrono::steady_clock::time_point setUpAt;
    bool isOutdated = false;    // the main window changed meanwhile
    AXElementRef changedField;  // whose value changed last; null when none did
    std::uint64_t changes = 0;  // readings of the field that were decided on
    std::uint64_t stored = 0;   // the latest of them whose text was taken
};

}  // namespace useragent
