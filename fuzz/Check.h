#pragma once

#include <cstdlib>
#include <string_view>

// What a fuzz target asks of what it calls: ends the process where it does not hold.
inline void Check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

inline std::string_view AsText(const unsigned char* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
