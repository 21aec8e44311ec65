#pragma once

#include <string>
#include <string_view>

namespace useragent {

// One word of a POSIX shell.
std::string QuotedForShell(std::string_view text);

// One argument in the value of an "Exec" key of a desktop file.
std::string QuotedForDesktopFile(std::string_view text);

// The text of an XML element; bytes above 127 stay.
std::string EscapedForXml(std::string_view text);

std::string Replaced(std::string_view text, std::string_view what, std::string_view by);

}  // namespace useragent
