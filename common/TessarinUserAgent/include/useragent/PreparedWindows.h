#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "useragent/Accessibility.h"
#include "useragent/SearchReader.h"
#include "usercommon/Dispatch.h"

namespace useragent {

// For platforms that announce another main window without having looked into it: what the watcher asks then
// is asked for beforehand on a queue, so that the main thread waits for no application. Any thread.
class PreparedWindows : public std::enable_shared_from_this<PreparedWindows> {
 public:
    // Each search may take `searchBudget`.
    PreparedWindows(std::shared_ptr<cmn::Dispatch> dispatch, std::shared_ptr<AccessibilityReader> reader,
                    MonotonicClock now, std::chrono::nanoseconds searchBudget);

    // Another main window was announced by the process of that application: finds out what it is, then calls
    // `tell` on the main thread. Of several that are under way for one process only the last is told.
    void announce(std::int32_t pid, const AXElementRef& application, std::function<void()> tell);

    // What was found out, while it is being told; nothing of everything else.
    std::optional<AXError> read(std::int32_t pid, const AXElementRef& element, const std::string& attribute,
                                AXValue& value) const;

 private:
    struct Answer {
        AXError error = AXError::noValue;
        AXValue value;
    };
    struct Window {
        std::int32_t pid = 0;
        Answer mainWindow;
        AXElementRef window;
        AXElementRef field;                     // null when none was found
        std::map<std::string, Answer> ofField;  // by attribute
    };

    bool isLatest(std::int32_t pid, std::uint64_t announcement) const;
    Window examine(std::int32_t pid, const AXElementRef& application) const;
    void show(Window window, std::uint64_t announcement, const std::function<void()>& tell);

    const std::shared_ptr<cmn::Dispatch> dispatch_;
    const std::shared_ptr<AccessibilityReader> reader_;
    const MonotonicClock now_;
    const std::chrono::nanoseconds searchBudget_;

    mutable std::mutex mutex_;  // guards what follows
    std::uint64_t announcements_ = 0;
    std::map<std::int32_t, std::uint64_t> latest_;  // of the processes with one under way
    std::optional<Window> shown_;
};

}  // namespace useragent
