#pragma once

#include <string>
#include <vector>

#include "linux_bus/Connection.h"

namespace ctl {

// Runs a program, looked for in PATH, to its end. Its input and outputs are nowhere. Whether it succeeded;
// one that still runs at the deadline is ended and did not. Any thread.
bool RunProgram(const std::vector<std::string>& command, cmn::bus::Deadline deadline);

}  // namespace ctl
