#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "useragent/Accessibility.h"

namespace useragent {

// What the watcher keeps for one running browser. Guarded by the watcher's mutex.
struct BrowserURLWatcherContext {
    BrowserURLWatcherContext() = default;
    BrowserURLWatcherContext(const BrowserURLWatcherContext&) = delete;
    BrowserURLWatcherContext& operator=(const BrowserURLWatcherContext&) = delete;

    // Takes both observers off the main run loop, the main window's first.
    ~BrowserURLWatcherContext();

    std::string name;
    std::int32_t pid = 0;
    std::unique_ptr<AXObserver> valueChangedObserver;       // null until subscribed
    std::unique_ptr<AXObserver> mainWindowChangedObserver;  // null until subscribed
    std::string url;                                        // last text read from the field, UTF-8
};

}  // namespace useragent
