#include "Expression.h"

#include <re2/re2.h>

#include <array>

#include "common/exceptions.h"

// RE2: the time of a search is bounded by the text's length. The pattern sees UTF-8 where it is well-formed.
namespace host {

struct Expression::Engine {
    explicit Engine(const std::string& pattern) : re(pattern, RE2::Quiet) {}

    const RE2 re;
};

Expression::Expression(const std::string& pattern) : engine_(std::make_unique<Engine>(pattern)) {
    if (!engine_->re.ok()) {
        throw_with_trace(std::runtime_error(engine_->re.error()));
    }
}

Expression::~Expression() = default;

std::optional<Expression::Found> Expression::find(std::string_view text, std::size_t from) const {
    const RE2& re = engine_->re;
    const re2::StringPiece subject(text.data(), text.size());
    std::array<re2::StringPiece, 2> found;  // the whole match and the first group
    const std::size_t group = re.NumberOfCapturingGroups() > 0 ? 1 : 0;
    if (!re.Match(subject, from, text.size(), RE2::UNANCHORED, found.data(), static_cast<int>(group + 1))) {
        return std::nullopt;
    }
    const auto begin = static_cast<std::size_t>(found[0].data() - text.data());
    return Found{begin, begin + found[0].size(), {found[group].data(), found[group].size()}};
}

}  // namespace host
