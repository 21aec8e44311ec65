#include "common/utf8.h"

#include <cstddef>

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

// Bytes of the well-formed sequence at the start of the text, which is not empty; 0 when there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto lead = Classify(static_cast<unsigned char>(text[0]));
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

}  // namespace

bool IsValidUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::size_t Utf16Length(std::string_view text) {
    std::size_t units = 0;
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        units += length == 4 ? 2 : 1;  // what needs four bytes lies beyond the first 65,536 characters
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return units;
}

}  // namespace cmn
