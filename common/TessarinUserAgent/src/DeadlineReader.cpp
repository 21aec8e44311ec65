#include "useragent/DeadlineReader.h"

#include <utility>

namespace useragent {

DeadlineReader::DeadlineReader(AccessibilityReader& reader, MonotonicClock now,
                               std::chrono::nanoseconds budget)
    : reader_(reader), now_(std::move(now)), deadline_(now_() + budget) {}

AXError DeadlineReader::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                           AXValue& value) {
    if (expired_ || now_() >= deadline_) {
        expired_ = true;
        return AXError::cannotComplete;
    }
    return reader_.copyAttributeValue(element, attribute, value);
}

}  // namespace useragent
