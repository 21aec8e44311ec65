#include "filemanagers/Quoting.h"

#include <boost/algorithm/string/replace.hpp>

namespace useragent {

std::string Replaced(std::string_view text, std::string_view what, std::string_view by) {
    return boost::algorithm::replace_all_copy(std::string(text), what, by);
}

std::string QuotedForShell(std::string_view text) {
    return "'" + Replaced(text, "'", R"('\'')") + "'";
}

std::string QuotedForDesktopFile(std::string_view text) {
    std::string quoted;
    for (const char c : Replaced(text, "%", "%%")) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    // The value of a key has a layer of escapes of its own.
    return '"' + Replaced(quoted, "\\", "\\\\") + '"';
}

std::string EscapedForXml(std::string_view text) {
    return Replaced(Replaced(Replaced(text, "&", "&amp;"), "<", "&lt;"), ">", "&gt;");
}

}  // namespace useragent
