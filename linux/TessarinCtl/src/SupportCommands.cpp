#include <cstdlib>
#include <ctime>
#include <memory>
#include <sstream>

#include "AgentCommands.h"
#include "CommandLine.h"
#include "Commands.h"
#include "bundle/BundleCommand.h"
#include "common/bundle.h"
#include "common/json.h"
#include "doctor/DoctorCommand.h"

namespace ctl {

namespace {

std::shared_ptr<const Machine> MachineOf(const Surroundings& surroundings) {
    return std::make_shared<const Machine>(ThisMachine(cmn::BundlePathOf(surroundings.agent),
                                                       surroundings.userLogs, surroundings.systemBus,
                                                       surroundings.sessionBus));
}

// A thread that hangs keeps the program from ending as usual.
int EndedWith(int code, bool leftBehind, Console& console) {
    if (leftBehind) {
        console.out.flush();
        console.err.flush();
        std::quick_exit(code);
    }
    return code;
}

// What "status" says, as JSON also when it only complains.
std::string StatusOf(const Surroundings& surroundings) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    Console console{in, out, err};
    RunCommandLine({"status", "--json"}, Commands(), surroundings, console);
    return out.str().empty() ? '"' + cmn::proto::JsonEscaped(err.str()) + '"' : out.str();
}

}  // namespace

int Diagnose(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const DoctorOptions options{arguments.json, arguments.has("--fix"), arguments.has("--yes")};
    const DoctorResult result = RunDoctor(options, MachineOf(surroundings), console.in, console.out);
    return EndedWith(result.exitCode, result.leftBehind, console);
}

int Bundle(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const std::shared_ptr<const Machine> machine = MachineOf(surroundings);
    std::ostringstream doctor;
    const DoctorResult examined = RunDoctor({.json = true}, machine, console.in, doctor);
    const std::filesystem::path archive =
        arguments.operands.empty() ? ArchiveName(std::time(nullptr)) : arguments.operands.front();
    const BundleSources sources = SourcesOfThisMachine(
        *machine, {{"doctor.json", doctor.str()}, {"status.json", StatusOf(surroundings)}});
    return EndedWith(RunBundle(sources, archive, console.out, console.err), examined.leftBehind, console);
}

}  // namespace ctl
