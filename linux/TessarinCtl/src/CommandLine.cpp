#include "CommandLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

#include "common/utf8.h"

namespace ctl {

namespace {

constexpr const char* kProgram = "tessarinctl";

// What a command line asks for, as far as it was understood.
struct Line {
    bool help = false;
    bool version = false;
    const Command* command = nullptr;
    Arguments arguments;
    std::string wrong;  // empty when all was understood
};

std::string Quoted(const std::string& text) {
    return "'" + cmn::EscapeControls(text) + "'";
}

const Command* FindCommand(const std::vector<Command>& commands, const std::string& name) {
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command& command) { return command.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

bool KnowsOption(const Command& command, const std::string& name) {
    return std::any_of(command.options.begin(), command.options.end(),
                       [&](const Option& option) { return option.name == name; });
}

std::string WrongOperands(const Line& line) {
    const std::size_t count = line.arguments.operands.size();
    if (count < line.command->leastOperands) {
        return fmt::format("{} needs {}", line.command->name, line.command->operands);
    }
    return count > line.command->mostOperands
               ? fmt::format("{} does not take {}", line.command->name,
                             Quoted(line.arguments.operands[line.command->mostOperands]))
               : std::string();
}

// An option may stand before and behind the command.
std::string WrongOptions(const Line& line) {
    if (line.arguments.json && !line.command->hasJson) {
        return fmt::format("{} has no option --json", line.command->name);
    }
    for (const std::string& option : line.arguments.options) {
        if (!KnowsOption(*line.command, option)) {
            return fmt::format("{} has no option {}", line.command->name, Quoted(option));
        }
    }
    return {};
}

Line Understood(const std::vector<std::string>& arguments, const std::vector<Command>& commands) {
    Line line;
    bool optionsEnded = false;
    for (const std::string& argument : arguments) {
        if (!optionsEnded && argument == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && (argument == "--help" || argument == "-h")) {
            line.help = true;
        } else if (!optionsEnded && argument == "--version") {
            line.version = true;
        } else if (!optionsEnded && argument == "--json") {
            line.arguments.json = true;
        } else if (!optionsEnded && argument.size() > 1 && argument.front() == '-') {
            line.arguments.options.insert(argument);
        } else if (line.command != nullptr) {
            line.arguments.operands.push_back(argument);
        } else {
            line.command = FindCommand(commands, argument);
            if (line.command == nullptr) {
                line.wrong = "unknown command " + Quoted(argument);
                return line;
            }
        }
    }
    if (line.help || line.version) {
        return line;
    }
    if (line.command == nullptr) {
        line.wrong = line.arguments.options.empty()
                         ? "no command"
                         : "unknown option " + Quoted(*line.arguments.options.begin());
        return line;
    }
    line.wrong = WrongOptions(line);
    if (line.wrong.empty()) {
        line.wrong = WrongOperands(line);
    }
    return line;
}

void WriteOption(std::ostream& out, const std::string& name, const char* help) {
    out << fmt::format("  {:<18} {}\n", name, help);
}

std::string WithOperands(const Command& command) {
    return *command.operands == '\0' ? command.name : fmt::format("{} {}", command.name, command.operands);
}

void WriteHelp(std::ostream& out, const std::vector<Command>& commands) {
    out << "Usage: " << kProgram << " COMMAND [OPTIONS]\n\nCommands:\n";
    for (const Command& command : commands) {
        WriteOption(out, WithOperands(command), command.help);
    }
    out << "\nOptions:\n";
    WriteOption(out, "--json", "JSON instead of text, where the command has it");
    WriteOption(out, "--help, -h", "this text, or that of a command");
    WriteOption(out, "--version", "version of this program");
    out << "\nExit codes: 0 all is well; 1 something is not; 2 wrong arguments.\n";
}

void WriteHelp(std::ostream& out, const Command& command) {
    out << "Usage: " << kProgram << ' ' << WithOperands(command) << " [OPTIONS]\n\n" << command.help << '\n';
    out << "\nOptions:\n";
    for (const Option& option : command.options) {
        WriteOption(out, option.name, option.help);
    }
    if (command.hasJson) {
        WriteOption(out, "--json", "JSON instead of text");
    }
    WriteOption(out, "--help, -h", "this text");
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const std::vector<Command>& commands,
                   const Surroundings& surroundings, Console& console) {
    const Line line = Understood(arguments, commands);
    if (!line.wrong.empty()) {
        console.err << kProgram << ": " << line.wrong << "; see --help\n";
        return kWrongUse;
    }
    if (line.help) {
        line.command != nullptr ? WriteHelp(console.out, *line.command) : WriteHelp(console.out, commands);
        return kAllIsWell;
    }
    if (line.version) {
        console.out << kProgram << ' ' << TESSARIN_VERSION << '\n';
        return kAllIsWell;
    }
    try {
        return line.command->run(line.arguments, surroundings, console);
    } catch (const std::exception& error) {
        console.err << kProgram << ": " << cmn::EscapeControls(error.what()) << '\n';
        return kSomethingIsWrong;
    }
}

}  // namespace ctl
