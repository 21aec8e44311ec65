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

MatchCounts TextMatcher::count(std::string_view text) const {
    const RE2& re = expression_->re;
    const re2::StringPiece subject(text.data(), text.size());
    std::array<re2::StringPiece, 2> found;  // the whole match and the first group
    const std::size_t group = re.NumberOfCapturingGroups() > 0 ? 1 : 0;
    std::unordered_set<std::string_view> distinct;
    MatchCounts counts;
    std::size_t from = 0;
    while (from <= text.size() &&
           re.Match(subject, from, text.size(), RE2::UNANCHORED, found.data(), static_cast<int>(group + 1))) {
        const auto end = [&](std::size_t index) {
            return static_cast<std::size_t>(found[index].data() - text.data()) + found[index].size();
        };
        if (found[group].empty()) {
            from = found[0].empty() ? end(0) + 1 : end(0);
            continue;
        }
        // Not behind the whole match: what follows a match may also be what the next one has to follow.
        from = end(group);
        const std::string_view match(found[group].data(), found[group].size());
        if (checkDigit_ == CheckDigit::none || PassesLuhn(match)) {
            ++counts.all;
            distinct.insert(match);
        }
    }
    counts.distinct = distinct.size();
    return counts;
}

}  // namespace host
