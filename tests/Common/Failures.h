#pragma once

#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "common/exceptions.h"

namespace fake {

// The texts of what `body` throws, the outermost first, followed by those nested inside it. Empty when it
// throws nothing.
inline std::vector<std::string> FailuresOf(const std::function<void()>& body) {
    std::vector<std::string> texts;
    std::function<void()> next = body;
    for (bool more = true; more;) {
        more = false;
        try {
            next();
        } catch (const std::exception& e) {
            texts.emplace_back(e.what());
            const auto* nested = dynamic_cast<const std::nested_exception*>(&e);
            if (nested != nullptr && nested->nested_ptr()) {
                next = [inner = nested->nested_ptr()] { std::rethrow_exception(inner); };
                more = true;
            }
        }
    }
    return texts;
}

inline std::string FailureOf(const std::function<void()>& body) {
    const auto texts = FailuresOf(body);
    return texts.empty() ? "nothing was thrown" : texts.front();
}

// Whether the exception that `body` throws carries the call stack of the throw.
inline bool FailureHasCallStack(const std::function<void()>& body) {
    try {
        body();
    } catch (const boost::exception& e) {
        return boost::get_error_info<tag_stacktrace>(e) != nullptr;
    } catch (const std::exception&) {
        return false;
    }
    return false;
}

}  // namespace fake
