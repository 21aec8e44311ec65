#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "useragent/Accessibility.h"

namespace useragent {

// What the watcher knows of the browsers that it observes, so that a look finds what no notification has
// told. For platforms that tell nothing of their own accord. Any thread.
class ObservedBrowsers {
 public:
    // Passes a notification on as if the platform had told it. Any thread.
    using Tell = std::function<void(const AXElementRef& element, const std::string& notification)>;
    using IsSame = std::function<bool(const AXElementRef& left, const AXElementRef& right)>;

    explicit ObservedBrowsers(IsSame isSame) : isSame_(std::move(isSame)) {}

    // From now on the process's element is observed for that notification, in place of another one before.
    void observe(std::int32_t pid, const AXElementRef& element, const std::string& notification, Tell tell);

    // What the watcher has read of the process.
    void note(std::int32_t pid, const std::string& attribute, const AXValue& value);

    // Reads text and main window again and tells what is another one, or that the field is gone. The reader
    // may wait for its deadline. The first read's result, which says whether the process answers.
    AXError look(std::int32_t pid, const AXElementRef& application, AccessibilityReader& reader);

    // Forgets all other processes.
    void keepOnly(const std::vector<std::int32_t>& pids);

 private:
    struct Observed {
        AXElementRef element;
        Tell tell;
    };
    struct Browser {
        Observed field;
        Observed application;
        std::optional<std::string> text;  // of the field, as it was read last
        AXElementRef mainWindow;          // as it was read last
    };

    const IsSame isSame_;

    std::mutex mutex_;  // guards what follows
    std::map<std::int32_t, Browser> browsers_;
};

}  // namespace useragent
