#pragma once

#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"

namespace fake {

// One run of tessarinctl: what it wrote and its exit code.
struct CtlRun {
    int code = -1;
    std::string out;
    std::string err;
};

// Runs the program's commands in this process. `columns`: of a terminal, else 0.
inline CtlRun RunCtl(const std::vector<std::string>& arguments, const ctl::Surroundings& surroundings = {},
                     std::string input = {}, std::size_t columns = 0,
                     const std::vector<ctl::Command>& commands = ctl::Commands()) {
    std::istringstream in(std::move(input));
    std::ostringstream out;
    std::ostringstream err;
    ctl::Console console{in, out, err, columns};
    const int code = ctl::RunCommandLine(arguments, commands, surroundings, console);
    return {code, out.str(), err.str()};
}

}  // namespace fake
