#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cmn {

// The longest property list that is read, in bytes: the parser goes one call deeper for every level.
inline constexpr std::size_t kMaxPropertyList = 16 << 10;

// The string under `key` in the top dictionary of an XML property list; empty when there is none, the text is
// not such a list, or too long.
std::optional<std::string> FindPlistString(std::string_view plist, std::string_view key);

}  // namespace cmn
