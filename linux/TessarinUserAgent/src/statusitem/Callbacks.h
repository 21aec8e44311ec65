#pragma once

#include <exception>
#include <functional>

#include "common/log.h"

namespace useragent {

// Calls what the toolkit is to call, from which nothing may be thrown.
inline void CallNoThrow(const std::function<void()>& callback) noexcept {
    try {
        // A callback may replace itself where it is kept.
        std::function<void()> kept;
        kept = callback;
        if (kept) {
            kept();
        }
    } catch (const std::exception& error) {
        TLOG_ERROR("The status menu -- failed: {}", error.what());
    } catch (...) {
        TLOG_ERROR("The status menu -- failed");
    }
}

}  // namespace useragent
