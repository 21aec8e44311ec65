#include "TextMatcher.h"

#include <limits>
#include <optional>
#include <unordered_set>

#include "common/exceptions.h"
#include "common/make_error.h"

namespace host {

namespace {

std::unique_ptr<const Expression> MakeExpression(const std::string& pattern) {
    try {
        return std::make_unique<Expression>(pattern);
    } catch (const std::runtime_error& e) {
        throw_with_trace(cmn::make_error("is refused: ", e.what()));
    }
}

// Nothing either when the search was given up, which ends it for the whole text.
std::optional<Expression::Found> Find(const Expression& expression, std::string_view text, std::size_t from,
                                      ScanBounds& bounds) {
    try {
        return expression.find(text, from);
    } catch (const SearchTooLong&) {
        bounds.allow(std::numeric_limits<std::uint64_t>::max());
        return std::nullopt;
    }
}

}  // namespace

TextMatcher::TextMatcher(const std::string& pattern, CheckDigit checkDigit)
    : expression_(MakeExpression(pattern)), checkDigit_(checkDigit) {}

TextMatcher::~TextMatcher() = default;

MatchCounts TextMatcher::count(std::string_view text, ScanBounds& bounds) const {
    std::unordered_set<std::string_view> distinct;
    MatchCounts counts;
    std::uint64_t searchedAgain = 0;
    std::size_t from = 0;
    while (from <= text.size() && bounds.allow(searchedAgain)) {
        const auto found = Find(*expression_, text, from, bounds);
        if (!found) {
            break;
        }
        const auto& [begin, end, match] = *found;
        if (match.empty()) {
            from = begin == end ? end + 1 : end;
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
