#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cmn {

// A text as it reads without its escapes (%2f, \x2f, \u002f, \/), also those of escapes, and where each of
// its bytes comes from. What looks like an escape may be none: then a text with fewer passes tells what it
// hides.
struct DecodedText {
    struct Origin {
        std::size_t begin = 0;  // in the source
        std::size_t end = 0;
        bool escaped = false;
    };

    // An escape of an escape of an escape is nothing that a program writes.
    static constexpr int kMostPasses = 4;

    explicit DecodedText(std::string_view source, int mostPasses = kMostPasses);

    std::string bytes;
    std::vector<Origin> origins;  // of each byte
    int passes = 0;               // that changed something

 private:
    bool decodeOnce();
    std::size_t decodeAt(std::size_t at, std::string& decoded) const;
};

}  // namespace cmn
