#pragma once

#include <string>
#include <string_view>

namespace useragent {

// Foreign text for a place of one line: each control character and each separator of lines is a blank. Bytes
// that are not UTF-8 stay.
std::string OneLine(std::string_view text);

// Bytes as text that tells any two apart: what is no UTF-8, and control characters, byte by byte as "\xE9"; a
// backslash as two.
std::string EscapedBytes(std::string_view bytes);

// What a window shows of the path that was asked for: the path in one line, or that it cannot be read when it
// is not UTF-8.
std::string FileNameText(std::string_view path);

}  // namespace useragent
