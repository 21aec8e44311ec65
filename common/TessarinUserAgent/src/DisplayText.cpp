#include "useragent/DisplayText.h"

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

}  // namespace

std::string OneLine(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const std::size_t length = cmn::Utf8SequenceLength(text);
        const auto character = text.substr(0, std::max<std::size_t>(length, 1));
        line += length != 0 && EndsOrControlsLines(character) ? std::string_view(" ") : character;
        text.remove_prefix(character.size());
    }
    return line;
}

std::string FileNameText(std::string_view path) {
    return cmn::IsValidUtf8(path) ? OneLine(path) : "The name cannot be read: " + cmn::EscapeControls(path);
}

}  // namespace useragent
