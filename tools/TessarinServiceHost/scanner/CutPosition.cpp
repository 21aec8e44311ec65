#include "CutPosition.h"

namespace host {

std::size_t CutPosition(std::string_view text, std::size_t limit) {
    const auto byteAt = [&](std::size_t position) { return static_cast<unsigned char>(text[position]); };
    const auto isContinuation = [&](std::size_t position) { return (byteAt(position) & 0xC0U) == 0x80U; };
    std::size_t begin = limit;
    while (begin > 0 && limit - begin < 3 && isContinuation(begin)) {
        --begin;
    }
    // What does not begin a character of several bytes is no UTF-8, which is cut anywhere.
    return byteAt(begin) >= 0xC0U ? begin : limit;
}

}  // namespace host
