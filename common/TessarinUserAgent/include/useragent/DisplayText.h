#pragma once

#include <string>
#include <string_view>

namespace useragent {

// Foreign text for a place of one line: each control character and each separator of lines is a blank. Bytes
// that are not UTF-8 stay.
std::string OneLine(std::string_view text);

// What a window shows of the path that was asked for: the path in one line, or that it cannot be read when it
// is not UTF-8.
std::string FileNameText(std::string_view path);

}  // namespace useragent
