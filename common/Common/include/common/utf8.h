#pragma once

#include <string_view>

namespace cmn {

// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(std::string_view text);

}  // namespace cmn
