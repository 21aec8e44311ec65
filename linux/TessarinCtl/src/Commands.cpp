#include "Commands.h"

#include "AgentCommands.h"
#include "SupportCommands.h"

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
        DoctorCommand(),
        BundleCommand(),
    };
    return commands;
}

}  // namespace ctl
