#pragma once

#include <cstddef>
#include <functional>
#include <istream>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "Surroundings.h"

namespace ctl {

// Exit codes.
inline constexpr int kAllIsWell = 0;
inline constexpr int kSomethingIsWrong = 1;  // or could not be found out
inline constexpr int kWrongUse = 2;          // unknown command, option or number of operands

// What a command line says, the name of the command left out.
struct Arguments {
    bool json = false;              // the output is one JSON value instead of text
    std::set<std::string> options;  // of the command's own, as its table names them
    std::vector<std::string> operands;

    bool has(const char* option) const { return options.count(option) != 0; }
};

// Where a command reads and writes.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    // Columns of the terminal that `out` is; 0 when it is none: nothing is cut then.
    std::size_t columns = 0;
    // Waits a moment before a command that follows something looks again; no ends the command.
    std::function<bool()> goOn = [] { return false; };
};

struct Option {
    const char* name;
    const char* help;  // one line
};

// A command of the program. `run` returns an exit code. It may throw std::exception, which becomes a line on
// `err` and `kSomethingIsWrong`. Every call of another process in it has a deadline.
struct Command {
    const char* name;
    const char* operands;  // as the help shows them; empty for none
    const char* help;      // one line
    std::vector<Option> options;
    std::size_t leastOperands;
    std::size_t mostOperands;
    bool hasJson;
    int (*run)(const Arguments& arguments, const Surroundings& surroundings, Console& console);
};

}  // namespace ctl
