#pragma once

#include <string_view>

namespace host {

enum class CheckDigit { none, luhn };

// Whether the last of the decimal digits in `text` is the right Luhn check digit for those before it. What is
// no digit is skipped; a text without digits has no right one.
bool PassesLuhn(std::string_view text);

}  // namespace host
