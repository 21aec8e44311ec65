#pragma once

#include <string>
#include <string_view>

namespace useragent::thunar {

inline constexpr const char* kUniqueId = "tessarin-properties";

// A list without any action.
inline constexpr const char* kEmptyList =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n</actions>\n";

// All of these take the text of Thunar's uca.xml, and change nothing in it but our action. They throw
// std::runtime_error, with the rest of a sentence that begins with the file's name, when it is not UTF-8, not
// well-formed XML or no list of actions.

bool HasAction(std::string_view list);
// Also when the list has it already, as it is or changed by the user.
std::string WithAction(std::string_view list, std::string_view action);
std::string WithoutAction(std::string_view list);

// For a list that only exists because of us: a mark within our action, and whether a list has it.
std::string MarkedAsMaker(std::string_view action);
bool IsMadeByUs(std::string_view list);

}  // namespace useragent::thunar
