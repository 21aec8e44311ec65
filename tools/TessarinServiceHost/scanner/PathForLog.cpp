#include "PathForLog.h"

#include <fmt/format.h>

#include "CutPosition.h"

namespace host {

namespace {

constexpr std::size_t kLongest = 200;

// Control characters of ASCII, and both bytes of those beyond it, which terminals obey as well.
bool IsControl(std::string_view text, std::size_t position) {
    const auto byteAt = [&](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    const auto isBeyondAscii = [&](std::size_t first) {
        return byteAt(first) == 0xC2 && byteAt(first + 1) >= 0x80 && byteAt(first + 1) < 0xA0;
    };
    return byteAt(position) < 0x20 || byteAt(position) == 0x7F || isBeyondAscii(position) ||
           (position > 0 && isBeyondAscii(position - 1));
}

}  // namespace

std::string PathForLog(std::string_view path) {
    const bool isLong = path.size() > kLongest;
    const std::string_view shown = isLong ? path.substr(0, CutPosition(path, kLongest)) : path;
    std::string text;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        if (IsControl(shown, i)) {
            text += fmt::format("\\x{:02x}", static_cast<unsigned char>(shown[i]));
        } else {
            text += shown[i];
        }
    }
    return isLong ? text + fmt::format("... ({} bytes)", path.size()) : text;
}

}  // namespace host
