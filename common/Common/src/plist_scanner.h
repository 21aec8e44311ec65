#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cmn {

// Walks through the elements of an XML text. Knows what property lists use: elements, text with entities,
// CDATA; comments, declarations and attributes are passed over. An empty element is an open followed by a
// close.
class PlistScanner {
 public:
    enum class Kind { open, close, text, end };
    struct Token {
        Kind kind;
        std::string text;  // name of the element, or the text with its entities resolved
    };

    explicit PlistScanner(std::string_view xml) : rest_(xml) {}

    // `end` at the end of the text and from the first malformed place on.
    Token next();

    // The text up to the close of the element just opened; empty when it holds another element or never
    // closes.
    std::optional<std::string> textOfElement();

 private:
    Token tag();
    bool passOver(std::string_view begin, std::string_view end);
    Token stop();

    std::string_view rest_;
    std::string pendingClose_;
};

}  // namespace cmn
