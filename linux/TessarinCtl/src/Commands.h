#pragma once

#include <vector>

#include "Command.h"

namespace ctl {

// All commands, in the order in which the help shows them.
const std::vector<Command>& Commands();

}  // namespace ctl
