#include "Expression.h"

#include <boost/regex.hpp>

#include "common/exceptions.h"

// The headers of Boost.Regex need no library that the system does not bring. It goes back and tries again, so
// a search can cost too much; it notices that itself. The pattern sees bytes.
namespace host {

struct Expression::Engine {
    explicit Engine(const std::string& pattern)
        : regex(pattern, boost::regex::perl | boost::regex::no_mod_m | boost::regex::no_mod_s) {}

    const boost::regex regex;
};

Expression::Expression(const std::string& pattern) {
    try {
        engine_ = std::make_unique<Engine>(pattern);
    } catch (const boost::regex_error& e) {
        throw_with_trace(std::runtime_error(e.what()));
    }
}

Expression::~Expression() = default;

std::optional<Expression::Found> Expression::find(std::string_view text, std::size_t from) const {
    const char* const first = text.data();
    const char* const last = first + text.size();
    boost::cmatch found;
    bool isThere = false;
    try {
        isThere = boost::regex_search(first + from, last, found, engine_->regex, boost::match_default, first);
    } catch (const std::runtime_error& e) {
        throw_with_trace(SearchTooLong(e.what()));
    }
    if (!isThere) {
        return std::nullopt;
    }
    const auto& match = found[engine_->regex.mark_count() > 0 ? 1 : 0];
    return Found{static_cast<std::size_t>(found[0].first - first),
                 static_cast<std::size_t>(found[0].second - first),
                 match.matched ? std::string_view(match.first, static_cast<std::size_t>(match.length()))
                               : std::string_view()};
}

}  // namespace host
