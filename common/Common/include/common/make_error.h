#pragma once

#include <locale>
#include <sstream>
#include <stdexcept>

namespace cmn {

// An error whose text is every argument streamed in order, the numbers in plain decimal whatever the global
// locale.
template <class... Args>
std::runtime_error make_error(const Args&... args) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    static_cast<void>((text << ... << args));
    return std::runtime_error(text.str());
}

}  // namespace cmn
