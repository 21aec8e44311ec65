#pragma once

#include <optional>

#include "impl_posix/UserDatabase.h"

namespace cmn {

// The user whose session is in front at the first seat, by logind. Empty when nobody is logged in there. Does
// not wait.
std::optional<UserEntry> ConsoleUser();

}  // namespace cmn
