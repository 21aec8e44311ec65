#include "useragent/DisplayText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

#include "common/utf8.h"

namespace useragent {

namespace {

constexpr std::string_view kLineSeparator = "\u2028";
constexpr std::string_view kParagraphSeparator = "\u2029";

// Of a whole character in UTF-8.
bool EndsOrControlsLines(std::string_view character) {
    const auto last = static_cast<unsigned char>(character.back());
    return (character.size() == 1 && (last < 0x20 || last == 0x7F)) ||
           (character.size() == 2 && character.front() == '\xC2' && last < 0xA0) ||
           character == kLineSeparator || character == kParagraphSeparator;
}

// Calls with each character and whether it is well-formed; what is not comes byte by byte.
template <typename Visit>
void ForEachCharacter(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t length = cmn::Utf8SequenceLength(text);
        visit(text.substr(0, std::max<std::size_t>(length, 1)), length != 0);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
}

}  // namespace

std::string OneLine(std::string_view text) {
    std::string line;
    ForEachCharacter(text, [&line](std::string_view character, bool wellFormed) {
        line += wellFormed && EndsOrControlsLines(character) ? std::string_view(" ") : character;
    });
    return line;
}

std::string EscapedBytes(std::string_view bytes) {
    std::string escaped;
    ForEachCharacter(bytes, [&escaped](std::string_view character, bool wellFormed) {
        if (character == "\\") {
            escaped += "\\\\";
        } else if (wellFormed && !EndsOrControlsLines(character)) {
            escaped += character;
        } else {
            for (const char byte : character) {
                escaped += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
            }
        }
    });
    return escaped;
}

std::string FileNameText(std::string_view path) {
    return cmn::IsValidUtf8(path) ? OneLine(path) : "The name cannot be read: " + EscapedBytes(path);
}

}  // namespace useragent
