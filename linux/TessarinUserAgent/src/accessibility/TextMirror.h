#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace useragent {

// One part of a text that was deleted or inserted; offset and length in code points.
struct TextChange {
    enum class Kind { deleted, inserted };

    Kind kind = Kind::inserted;
    std::size_t offset = 0;
    std::size_t length = 0;
    std::string text;  // that part, UTF-8
};

// A field's text as its changes tell it, without asking for it. Not known until it is set, and not any more
// after a change that does not fit.
class TextMirror {
 public:
    const std::optional<std::string>& text() const { return text_; }
    void set(std::string text) { text_ = std::move(text); }
    void apply(const TextChange& change);

 private:
    std::optional<std::string> text_;  // UTF-8
};

}  // namespace useragent
