#include "Commands.h"

namespace ctl {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands{};
    return commands;
}

}  // namespace ctl
