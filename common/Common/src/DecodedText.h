#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cmn {

// A text as it reads without its escapes (%2f, \x2f, \u002f, \/), also those of escapes, and where each of
// its bytes comes from. What looks like an escape and was none does no harm: it is only looked at.
struct DecodedText {
    struct Origin {
        std::size_t begin = 0;  // in the source
        std::size_t end = 0;
        bool escaped = false;
    };

    explicit DecodedText(std::string_view source);

    std::string bytes;
    std::vector<Origin> origins;  // of each byte

 private:
    bool decodeOnce();
    std::size_t decodeAt(std::size_t at, std::string& decoded) const;
};

}  // namespace cmn
