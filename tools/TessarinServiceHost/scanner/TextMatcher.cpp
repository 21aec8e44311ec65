#include "TextMatcher.h"

#include <re2/re2.h>

#include <array>
#include <unordered_set>

#include "common/exceptions.h"
#include "common/make_error.h"

namespace host {

struct TextMatcher::Expression {
    explicit Expression(const std::string& pattern) : re(pattern, RE2::Quiet) {}

    const RE2 re;
};

TextMatcher::TextMatcher(const std::string& pattern, CheckDigit checkDigit)
    : expression_(std::make_unique<Expression>(pattern)), checkDigit_(checkDigit) {
    if (!expression_->re.ok()) {
        throw_with_trace(cmn::make_error("is refused: ", expression_->re.error()));
    }
}

TextMatcher::~TextMatcher() = default;

MatchCounts TextMatcher::count(std::string_view text, ScanBounds& bounds) const {
    const RE2& re = expression_->re;
    const re2::StringPiece subject(text.data(), text.size());
    std::array<re2::StringPiece, 2> found;  // the whole match and the first group
    const std::size_t group = re.NumberOfCapturingGroups() > 0 ? 1 : 0;
    std::unordered_set<std::string_view> distinct;
    MatchCounts counts;
    std::uint64_t searchedAgain = 0;
    std::size_t from = 0;
    while (from <= text.size() && bounds.allow(searchedAgain) &&
           re.Match(subject, from, text.size(), RE2::UNANCHORED, found.data(), static_cast<int>(group + 1))) {
        const auto begin = static_cast<std::size_t>(found[0].data() - text.data());
        const std::size_t end = begin + found[0].size();
        const std::string_view match(found[group].data(), found[group].size());
        if (match.empty()) {
            from = found[0].empty() ? end + 1 : end;
            continue;
        }
        if (checkDigit_ == CheckDigit::none || PassesLuhn(match)) {
            ++counts.all;
            distinct.insert(match);
            // Not behind the whole match: what follows a match may also be what the next one has to follow.
            from = static_cast<std::size_t>(match.data() - text.data()) + match.size();
        } else {
            // The right one may begin within it: a short number can stand before a payment card's.
            from = begin + 1;
        }
        searchedAgain += end > from ? end - from : 0;
    }
    counts.distinct = distinct.size();
    return counts;
}

}  // namespace host
