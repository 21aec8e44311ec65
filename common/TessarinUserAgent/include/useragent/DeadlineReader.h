#pragma once

#include <chrono>
#include <functional>

#include "useragent/Accessibility.h"

namespace useragent {

using MonotonicClock = std::function<std::chrono::steady_clock::time_point()>;

// Bounds a whole series of reads: after the deadline every read fails with `cannotComplete` without asking.
// One thread.
class DeadlineReader : public AccessibilityReader {
 public:
    DeadlineReader(AccessibilityReader& reader, MonotonicClock now, std::chrono::nanoseconds budget);

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override;

    // Whether a read was refused because the time was up.
    bool expired() const { return expired_; }

 private:
    AccessibilityReader& reader_;
    MonotonicClock now_;
    std::chrono::steady_clock::time_point deadline_;
    bool expired_ = false;
};

}  // namespace useragent
