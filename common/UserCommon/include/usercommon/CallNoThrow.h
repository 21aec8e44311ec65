#pragma once

#include <exception>

#include "common/log.h"

namespace cmn {

// Runs `action`, whose caller is not ours; what it throws is logged as the failure of `what`.
template <typename Action>
void CallNoThrow(const char* what, const Action& action) {
    try {
        action();
    } catch (const std::exception& error) {
        TLOG_ERROR("{} -- failed: {}", what, error.what());
    } catch (...) {
        TLOG_ERROR("{} -- failed: {}", what, "not a standard exception");
    }
}

}  // namespace cmn
