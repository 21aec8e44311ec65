#pragma once

#include <sstream>
#include <stdexcept>

namespace cmn {

// An error whose text is every argument streamed in order.
template <class... Args>
std::runtime_error make_error(const Args&... args) {
    std::ostringstream text;
    static_cast<void>((text << ... << args));
    return std::runtime_error(text.str());
}

}  // namespace cmn
