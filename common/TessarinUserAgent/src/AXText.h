#pragma once

#include <optional>
#include <string>
#include <vector>

#include "useragent/Accessibility.h"

namespace useragent {

// The string in a value; null when it holds something else.
inline AXStringRef AsString(const AXValue& value) {
    const auto* string = std::get_if<AXStringRef>(&value);
    return string ? *string : nullptr;
}

// The whole text for a comparison, however it is stored; nothing when it cannot be converted.
inline std::optional<std::string> TextOf(const AXString& string) {
    if (const char* direct = string.directUTF8()) {
        return std::string(direct);
    }
    std::vector<char> buffer(string.maximumUTF8Size() + 1);
    if (!string.copyUTF8(buffer.data(), buffer.size())) {
        return std::nullopt;
    }
    return std::string(buffer.data());
}

}  // namespace useragent
