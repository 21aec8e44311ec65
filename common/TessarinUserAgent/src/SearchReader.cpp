#include "useragent/SearchReader.h"

#include <utility>

#include "AXText.h"

namespace useragent {

SearchReader::SearchReader(AccessibilityReader& reader, MonotonicClock now, std::chrono::nanoseconds budget)
    : reader_(reader), now_(std::move(now)), deadline_(now_() + budget) {}

AXError SearchReader::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                         AXValue& value) {
    if (attribute == kChildrenAttribute && webAreas_.contains(element.get())) {
        return AXError::noValue;
    }
    if (expired_ || now_() >= deadline_) {
        expired_ = true;
        return AXError::cannotComplete;
    }
    const AXError error = reader_.copyAttributeValue(element, attribute, value);
    if (attribute == kRoleAttribute) {
        const AXStringRef role = error == AXError::success ? AsString(value) : nullptr;
        if (role && TextOf(*role) == kWebAreaRole) {
            webAreas_.insert(element.get());
        } else {
            webAreas_.erase(element.get());
        }
    }
    return error;
}

}  // namespace useragent
