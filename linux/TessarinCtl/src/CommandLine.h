#pragma once

#include <string>
#include <vector>

#include "Command.h"

namespace ctl {

// The whole program but for what only the process knows: understands the arguments (without the program's
// name), runs the command and returns the exit code. Throws nothing.
int RunCommandLine(const std::vector<std::string>& arguments, const std::vector<Command>& commands,
                   const Surroundings& surroundings, Console& console);

}  // namespace ctl
