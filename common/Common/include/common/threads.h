#pragma once

#include <system_error>

namespace cmn {

// The error of a thread that the system does not give, with the same text whoever tried to make it.
[[noreturn]] inline void ThrowThreadFailure(std::error_code reason) {
    throw std::system_error(reason, "thread constructor failed");
}

// What `make` returns, which makes one thread. Throws as above when there is none to be had.
template <class Make>
auto MakeThread(Make make) {
    try {
        return make();
    } catch (const std::system_error& error) {
        ThrowThreadFailure(error.code());
    }
}

}  // namespace cmn
