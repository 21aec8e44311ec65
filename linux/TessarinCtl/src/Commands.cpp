#include "Commands.h"

#include "AgentCommands.h"

namespace ctl {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands{
        {"status",
         "",
         "how the agent of this session is",
         {{"--addresses", "with the addresses that browsers show"}},
         0,
         0,
         true,
         Status},
        {"logs", "", "the agent's log", {{"-f", "goes on with what is written later"}}, 0, 0, false, Logs},
        {"open", "PATH", "opens the properties window of a file", {}, 1, 1, false, Open},
        {"scan", "PATH", "what the service finds in a file", {}, 1, 1, true, Scan},
        {"doctor",
         "",
         "what is wrong here, and what mends it",
         {{"--fix", "mend what needs no rights, after asking"}, {"--yes", "with --fix: do not ask"}},
         0,
         0,
         true,
         Diagnose},
        {"bundle",
         "[FILE]",
         "one archive for support, without addresses, paths, names, keys",
         {},
         0,
         1,
         false,
         Bundle},
    };
    return commands;
}

}  // namespace ctl
