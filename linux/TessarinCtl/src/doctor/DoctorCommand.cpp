#include "doctor/DoctorCommand.h"

#include <string>
#include <utility>

#include "common/utf8.h"

namespace ctl {

namespace {

bool Agrees(std::istream& in, std::ostream& out, const std::string& what) {
    out << "    Do it now: " << cmn::EscapeControls(what) << " [y/N] " << std::flush;
    std::string answer;
    return std::getline(in, answer) && (answer == "y" || answer == "Y" || answer == "yes");
}

}  // namespace

DoctorResult RunDoctor(const DoctorOptions& options, std::shared_ptr<const Machine> machine, std::istream& in,
                       std::ostream& out, std::chrono::milliseconds deadline,
                       const std::vector<Check>& checks) {
    Doctor doctor(std::move(machine), deadline);
    const bool tells = !options.json;
    std::vector<Examined> examined;
    for (const Check& check : checks) {
        Examined one = doctor.examine(check);
        if (tells) {
            out << LineOf(one) << std::flush;
        }
        // What comes later may depend on it, so it is mended at once.
        if (options.fix && one.finding.mend &&
            (options.yes || (tells && Agrees(in, out, one.finding.remedy)))) {
            const std::string failure = doctor.mend(one.finding);
            one = doctor.examine(check);
            if (!failure.empty() && one.finding.verdict == Verdict::wrong) {
                one.finding.text += "; it could not be mended: " + failure;
            }
            if (tells) {
                out << LineOf(one) << std::flush;
            }
        }
        examined.push_back(std::move(one));
    }
    if (!tells) {
        out << JsonOf(examined) << '\n';
    }
    return {IsHealthy(examined) ? 0 : 1, doctor.leftBehind()};
}

}  // namespace ctl
