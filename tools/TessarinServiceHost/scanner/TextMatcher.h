#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "CheckDigit.h"
#include "Expression.h"
#include "ScanBounds.h"

namespace host {

struct MatchCounts {
    std::size_t all = 0;
    std::size_t distinct = 0;
};

// Finds a regular expression in texts. Immutable: one object serves many threads.
class TextMatcher {
 public:
    // A pattern in the syntax of the platform's engine. Its first capturing group, if it has one, is the
    // match, so that what stands around it can be part of the pattern. Throws std::runtime_error when it is
    // refused.
    TextMatcher(const std::string& pattern, CheckDigit checkDigit);
    ~TextMatcher();
    TextMatcher(const TextMatcher&) = delete;
    TextMatcher& operator=(const TextMatcher&) = delete;

    // Counts the matches that do not overlap, from the left, as far as `bounds` allow. Empty ones and those
    // with a wrong check digit do not count, and what they cover may still hold another match. The text may
    // be any bytes.
    MatchCounts count(std::string_view text, ScanBounds& bounds) const;

 private:
    const std::unique_ptr<const Expression> expression_;
    const CheckDigit checkDigit_;
};

}  // namespace host
