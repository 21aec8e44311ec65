#include "accessibility/TextMirror.h"

#include <string_view>

namespace useragent {
namespace {

// The byte at which the code point of that number begins, or the end; nothing when there are fewer.
std::optional<std::size_t> ByteOf(std::string_view text, std::size_t codePoint) {
    std::size_t byte = 0;
    for (; codePoint > 0 && byte < text.size(); --codePoint) {
        for (++byte; byte < text.size() && (static_cast<unsigned char>(text[byte]) & 0xC0U) == 0x80U;) {
            ++byte;
        }
    }
    return codePoint == 0 ? std::optional(byte) : std::nullopt;
}

}  // namespace

void TextMirror::apply(const TextChange& change) {
    if (!text_) {
        return;
    }
    const auto begin = ByteOf(*text_, change.offset);
    const bool isWhole = ByteOf(change.text, change.length) == change.text.size();
    const bool isInsertion = change.kind == TextChange::Kind::inserted;
    if (!begin || !isWhole ||
        (!isInsertion && text_->compare(*begin, change.text.size(), change.text) != 0)) {
        text_.reset();
    } else if (isInsertion) {
        text_->insert(*begin, change.text);
    } else {
        text_->erase(*begin, change.text.size());
    }
}

}  // namespace useragent
