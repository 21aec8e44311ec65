#pragma once

#include <cstddef>
#include <string_view>

namespace cmn {

// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(std::string_view text);

// How many UTF-16 units the text takes. A byte that belongs to no well-formed sequence counts as one.
std::size_t Utf16Length(std::string_view text);

}  // namespace cmn
