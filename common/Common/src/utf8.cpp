#include "common/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace cmn {

namespace {

struct Lead {
    std::size_t length;  // of the sequence; 0 for a byte that cannot begin one
    unsigned char low;   // range of the second byte
    unsigned char high;
};

Lead Classify(unsigned char byte) {
    if (byte < 0x80)
        return {1, 0, 0};
    if (byte >= 0xC2 && byte <= 0xDF)
        return {2, 0x80, 0xBF};
    if (byte == 0xE0)
        return {3, 0xA0, 0xBF};
    if (byte == 0xED)
        return {3, 0x80, 0x9F};
    if (byte >= 0xE1 && byte <= 0xEF)
        return {3, 0x80, 0xBF};
    if (byte == 0xF0)
        return {4, 0x90, 0xBF};
    if (byte >= 0xF1 && byte <= 0xF3)
        return {4, 0x80, 0xBF};
    if (byte == 0xF4)
        return {4, 0x80, 0x8F};
    return {0, 0, 0};
}

// Of a well-formed sequence.
char32_t CodePoint(std::string_view sequence) {
    const auto lead = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1)
        return lead;
    char32_t code = lead & (0x7FU >> sequence.size());
    for (const char byte : sequence.substr(1))
        code = code << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    return code;
}

bool IsControl(char32_t code) {
    const auto in = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    return code < 0x20 || in(0x7F, 0x9F) || in(0x2028, 0x202E) || in(0x2066, 0x2069);
}

}  // namespace

std::size_t Utf8SequenceLength(std::string_view text) {
    const auto lead = text.empty() ? Lead{0, 0, 0} : Classify(static_cast<unsigned char>(text[0]));
    if (text.size() < lead.length)
        return 0;
    for (std::size_t k = 1; k < lead.length; ++k) {
        const auto byte = static_cast<unsigned char>(text[k]);
        const unsigned char low = k == 1 ? lead.low : 0x80;
        const unsigned char high = k == 1 ? lead.high : 0xBF;
        if (byte < low || byte > high)
            return 0;
    }
    return lead.length;
}

bool IsValidUtf8(std::string_view text) {
    // Most texts are ASCII: eight bytes at a time, as far as they are.
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    for (std::uint64_t bytes = 0; text.size() >= sizeof bytes; text.remove_prefix(sizeof bytes)) {
        std::memcpy(&bytes, text.data(), sizeof bytes);
        if ((bytes & kHighBits) != 0) {
            break;
        }
    }
    while (!text.empty()) {
        const std::size_t length = Utf8SequenceLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::size_t Utf16Length(std::string_view text) {
    std::size_t units = 0;
    while (!text.empty()) {
        const std::size_t length = Utf8SequenceLength(text);
        units += length == 4 ? 2 : 1;  // what needs four bytes lies beyond the first 65,536 characters
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return units;
}

std::string EscapeControls(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = Utf8SequenceLength(text);
        const auto piece = text.substr(0, std::max<std::size_t>(length, 1));
        text.remove_prefix(piece.size());
        if (length > 0 && !IsControl(CodePoint(piece))) {
            escaped += piece;
            continue;
        }
        for (const char byte : piece) {
            const auto value = static_cast<unsigned char>(byte);
            escaped += {'\\', 'x', kDigits[value >> 4U], kDigits[value & 0xFU]};
        }
    }
    return escaped;
}

}  // namespace cmn
