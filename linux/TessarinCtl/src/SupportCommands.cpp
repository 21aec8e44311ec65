#include "SupportCommands.h"

#include <cstdlib>
#include <ctime>
#include <memory>
#include <sstream>

#include "CommandLine.h"
#include "Commands.h"
#include "bundle/BundleCommand.h"
#include "common/bundle.h"
#include "common/json.h"
#include "doctor/DoctorCommand.h"

namespace ctl {

namespace {

constexpr const char* kFix = "--fix";
constexpr const char* kYes = "--yes";

std::shared_ptr<const Machine> MachineOf(const Surroundings& surroundings) {
    return std::make_shared<const Machine>(
        ThisMachine(cmn::BundlePathOf(surroundings.agent), surroundings.systemBus, surroundings.sessionBus));
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

int RunDoctorCommand(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const DoctorOptions options{arguments.json, arguments.has(kFix), arguments.has(kYes)};
    const DoctorResult result = RunDoctor(options, MachineOf(surroundings), console.in, console.out);
    return EndedWith(result.exitCode, result.leftBehind, console);
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

int RunBundleCommand(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const std::shared_ptr<const Machine> machine = MachineOf(surroundings);
    std::ostringstream doctor;
    const DoctorResult examined = RunDoctor({.json = true}, machine, console.in, doctor);
    const std::filesystem::path archive =
        arguments.operands.empty() ? ArchiveName(std::time(nullptr)) : arguments.operands.front();
    const BundleSources sources = SourcesOfThisMachine(
        *machine, {{"doctor.json", doctor.str()}, {"status.json", StatusOf(surroundings)}});
    return EndedWith(RunBundle(sources, archive, console.out, console.err), examined.leftBehind, console);
}

}  // namespace

Command DoctorCommand() {
    return {"doctor",
            "",
            "what is wrong here, and what mends it",
            {{kFix, "mend what needs no rights, after asking"}, {kYes, "with --fix: do not ask"}},
            0,
            0,
            true,
            RunDoctorCommand};
}

Command BundleCommand() {
    return {
        "bundle", "[FILE]",        "one archive for support, without addresses, paths, names, keys", {}, 0, 1,
        false,    RunBundleCommand};
}

}  // namespace ctl
