#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

// A search cost more than the engine allows itself.
class SearchTooLong : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// A regular expression of the platform's engine. Immutable: one object serves many threads.
class Expression {
 public:
    struct Found {
        std::size_t begin = 0;  // of the whole match in the text
        std::size_t end = 0;
        // Of the first capturing group, if the pattern has one, else the whole match. Empty when the group
        // took no part.
        std::string_view match;
    };

    // Lines are nothing to a pattern unless it says so. Throws std::runtime_error, with the reason, for a
    // pattern that is refused.
    explicit Expression(const std::string& pattern);
    ~Expression();
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;

    // The leftmost match that begins at `from` or behind it; what stands before `from` counts for boundaries.
    // May throw SearchTooLong.
    std::optional<Found> find(std::string_view text, std::size_t from) const;

 private:
    struct Engine;

    std::unique_ptr<const Engine> engine_;
};

}  // namespace host
