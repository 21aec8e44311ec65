#include "DecodedText.h"

#include <array>
#include <charconv>
#include <optional>
#include <utility>

namespace cmn {

namespace {

std::optional<unsigned> HexNumber(std::string_view text, std::size_t at, std::size_t digits) {
    unsigned value = 0;
    if (at + digits > text.size())
        return std::nullopt;
    const char* const end = text.data() + at + digits;
    const auto [stop, error] = std::from_chars(text.data() + at, end, value, 16);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::string Utf8Of(unsigned code) {
    const auto last = [](unsigned bits) { return static_cast<char>(0x80U | (bits & 0x3FU)); };
    if (code < 0x80)
        return {static_cast<char>(code)};
    if (code < 0x800)
        return {static_cast<char>(0xC0U | code >> 6U), last(code)};
    if (code < 0x10000)
        return {static_cast<char>(0xE0U | code >> 12U), last(code >> 6U), last(code)};
    return {static_cast<char>(0xF0U | code >> 18U), last(code >> 12U), last(code >> 6U), last(code)};
}

// "\uXXXX", or two of them for one character. Returns the bytes that it takes, 0 when it is none.
std::size_t Utf16Escape(std::string_view text, std::size_t at, std::string& decoded) {
    const auto unit = HexNumber(text, at + 2, 4);
    if (!unit)
        return 0;
    const bool isFirst = *unit >= 0xD800 && *unit < 0xDC00 && text.substr(at + 6, 2) == "\\u";
    const auto second = isFirst ? HexNumber(text, at + 8, 4) : std::nullopt;
    if (second && *second >= 0xDC00 && *second < 0xE000) {
        decoded = Utf8Of(0x10000 + ((*unit - 0xD800) << 10U) + (*second - 0xDC00));
        return 12;
    }
    decoded = Utf8Of(*unit);
    return 6;
}

}  // namespace

DecodedText::DecodedText(std::string_view source, int mostPasses) : bytes(source) {
    origins.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
        origins.push_back({i, i + 1, false});
    while (passes < mostPasses && decodeOnce())
        ++passes;
}

// How many bytes the escape at that place has; 0 when there is none.
std::size_t DecodedText::decodeAt(std::size_t at, std::string& decoded) const {
    const std::string_view text = bytes;
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (text[at] == '%' || (text[at] == '\\' && next == 'x')) {
        const std::size_t digits = text[at] == '%' ? at + 1 : at + 2;
        const auto value = HexNumber(text, digits, 2);
        decoded.assign(1, static_cast<char>(value.value_or(0)));
        return value ? digits + 2 - at : 0;
    }
    if (text[at] != '\\')
        return 0;
    if (next == 'u')
        return Utf16Escape(text, at, decoded);
    constexpr std::array<std::pair<char, char>, 7> kShort{
        {{'\\', '\\'}, {'/', '/'}, {'"', '"'}, {'\'', '\''}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}}};
    for (const auto& [letter, meaning] : kShort) {
        if (next == letter) {
            decoded.assign(1, meaning);
            return 2;
        }
    }
    return 0;
}

bool DecodedText::decodeOnce() {
    if (bytes.find_first_of("%\\") == std::string::npos)
        return false;
    std::string text;
    std::vector<Origin> from;
    bool changed = false;
    std::string decoded;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = decodeAt(at, decoded);
        if (length == 0) {
            text += bytes[at];
            from.push_back(origins[at]);
            ++at;
            continue;
        }
        text += decoded;
        from.insert(from.end(), decoded.size(), {origins[at].begin, origins[at + length - 1].end, true});
        at += length;
        changed = true;
    }
    bytes = std::move(text);
    origins = std::move(from);
    return changed;
}

}  // namespace cmn
