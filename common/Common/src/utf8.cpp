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

}  // namespace

bool IsValidUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = Classify(static_cast<unsigned char>(text[i]));
        if (lead.length == 0 || text.size() - i < lead.length)
            return false;
        for (std::size_t k = 1; k < lead.length; ++k) {
            const auto byte = static_cast<unsigned char>(text[i + k]);
            const unsigned char low = k == 1 ? lead.low : 0x80;
            const unsigned char high = k == 1 ? lead.high : 0xBF;
            if (byte < low || byte > high)
                return false;
        }
        i += lead.length;
    }
    return true;
}

}  // namespace cmn
