#pragma once

#include <filesystem>
#include <string_view>
#include <system_error>

#include "common/exceptions.h"
#include "common/make_error.h"

namespace cmn {

// Throws what the functions of whole files throw. `what`: "read" or "write"; `error`: of errno.
[[noreturn]] inline void FailOnFile(std::string_view function, std::string_view what,
                                    const std::filesystem::path& path, int error) {
    throw_with_trace(make_error("[", function, "] Can't ", what, " (", path.string(),
                                ") Error: ", std::generic_category().message(error)));
}

}  // namespace cmn
