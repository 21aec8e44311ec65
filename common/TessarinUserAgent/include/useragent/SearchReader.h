#pragma once

#include <chrono>
#include <functional>
#include <set>

#include "useragent/Accessibility.h"

namespace useragent {

using MonotonicClock = std::function<std::chrono::steady_clock::time_point()>;

// What a search for an address field sees. Not the inside of web pages, which could show a field of their own
// making; and after the deadline nothing: every read fails with `cannotComplete` without asking. One thread.
class SearchReader : public AccessibilityReader {
 public:
    SearchReader(AccessibilityReader& reader, MonotonicClock now, std::chrono::nanoseconds budget);

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override;

    // Whether a read was refused because the time was up.
    bool expired() const { return expired_; }

 private:
    AccessibilityReader& reader_;
    MonotonicClock now_;
    std::chrono::steady_clock::time_point deadline_;
    bool expired_ = false;
    std::set<const AXElement*> webAreas_;  // as their roles were read last
};

}  // namespace useragent
