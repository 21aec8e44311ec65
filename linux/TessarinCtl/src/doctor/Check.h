#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "linux_bus/Connection.h"

namespace ctl {

struct Machine;

enum class Verdict {
    good,
    notApplicable,  // this session or machine has no place for it
    warning,        // the product works, with something missing
    wrong,
};

// "ok", "not applicable", "warning", "wrong".
const char* NameOf(Verdict verdict);

// What a check has found.
struct Finding {
    Verdict verdict = Verdict::good;
    std::string text;    // a sentence or two without the last full stop
    std::string remedy;  // a command, or what else there is to do; empty when all is well
    // Does what the remedy says, as far as that needs no rights; throws std::runtime_error with a sentence.
    // Empty when that cannot be done here.
    std::function<void(const Machine&, cmn::bus::Deadline)> mend = {};
};

inline Finding Good(std::string text) {
    return {Verdict::good, std::move(text), {}};
}
inline Finding NotApplicable(std::string text) {
    return {Verdict::notApplicable, std::move(text), {}};
}

// One thing that is looked at. It changes nothing and waits no longer than to the deadline, as far as that is
// in its power.
struct Check {
    const char* id;     // for programs and docs/troubleshooting.md
    const char* title;  // for people
    Finding (*run)(const Machine&, cmn::bus::Deadline);
};

// All of them, in the order in which somebody new to the product meets them.
const std::vector<Check>& Checks();

}  // namespace ctl
