#include "useragent/FindURLElement.h"

#include <boost/algorithm/string/predicate.hpp>
#include <optional>
#include <string_view>

#include "AXText.h"

namespace useragent {
namespace {

constexpr std::uint32_t kMaxDepth = 29;

AXStringRef ReadString(AccessibilityReader& accessibility, const AXElementRef& element,
                       const char* attribute) {
    AXValue value;
    if (accessibility.copyAttributeValue(element, attribute, value) != AXError::success) {
        return nullptr;
    }
    return AsString(value);
}

bool AttributeEquals(AccessibilityReader& accessibility, const AXElementRef& element, const char* attribute,
                     std::string_view expected) {
    const AXStringRef string = ReadString(accessibility, element, attribute);
    return string && TextOf(*string) == expected;
}

bool DescribesAddressAndSearch(const AXValue& description) {
    const AXStringRef string = AsString(description);
    // A description without a direct pointer is not converted: the rule is then simply not evaluated.
    const char* text = string ? string->directUTF8() : nullptr;
    return text && boost::algorithm::icontains(text, "address") &&
           boost::algorithm::icontains(text, "search");
}

bool IsAddressField(AccessibilityReader& accessibility, const AXElementRef& field) {
    AXValue description;
    // Without a readable description the field is not tested further.
    if (accessibility.copyAttributeValue(field, kDescriptionAttribute, description) != AXError::success) {
        return false;
    }
    if (DescribesAddressAndSearch(description)) {
        return true;
    }
    if (AttributeEquals(accessibility, field, kIdentifierAttribute, "WEB_BROWSER_ADDRESS_AND_SEARCH_FIELD")) {
        return true;
    }
    if (AttributeEquals(accessibility, field, kDOMIdentifierAttribute, "urlbar-input")) {
        return true;
    }
    AXValue placeholder;
    return accessibility.copyAttributeValue(field, kPlaceholderValueAttribute, placeholder) ==
           AXError::success;
}

}  // namespace

AXElementRef FindURLElement(AccessibilityReader& accessibility, const AXElementRef& element,
                            std::uint32_t depth) {
    if (depth > kMaxDepth) {
        return nullptr;
    }
    AXValue children;
    if (accessibility.copyAttributeValue(element, kChildrenAttribute, children) != AXError::success) {
        return nullptr;
    }
    const auto* array = std::get_if<std::vector<AXValue>>(&children);
    if (!array) {
        return nullptr;
    }
    // Deliberately not reset between siblings: this makes the limit a budget they share.
    std::uint32_t counter = depth;
    for (const AXValue& entry : *array) {
        const auto* child = std::get_if<AXElementRef>(&entry);
        if (!child || !*child) {
            continue;
        }
        AXValue role;
        if (accessibility.copyAttributeValue(*child, kRoleAttribute, role) != AXError::success) {
            continue;
        }
        const AXStringRef roleName = AsString(role);
        if (roleName && TextOf(*roleName) == kTextFieldRole && IsAddressField(accessibility, *child)) {
            return *child;
        }
        ++counter;
        if (AXElementRef found = FindURLElement(accessibility, *child, counter)) {
            return found;
        }
    }
    return nullptr;
}

}  // namespace useragent
