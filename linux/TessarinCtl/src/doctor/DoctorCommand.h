#pragma once

#include <chrono>
#include <istream>
#include <memory>
#include <ostream>

#include "doctor/Doctor.h"

namespace ctl {

struct DoctorOptions {
    bool json = false;
    bool fix = false;  // mends what needs no rights
    bool yes = false;  // without asking first
};

struct DoctorResult {
    int exitCode = 1;  // 0: nothing is wrong, at the end of it
    // A check hangs in a thread of its own: the program has to end without waiting for anybody.
    bool leftBehind = false;
};

// Runs all checks and says one line about each, or one JSON document about all. With `fix` it mends what it
// can, asking on `in` and `out` each time, and looks again. For the deadline see Doctor.
DoctorResult RunDoctor(const DoctorOptions& options, std::shared_ptr<const Machine> machine, std::istream& in,
                       std::ostream& out, std::chrono::milliseconds deadline = kCheckDeadline,
                       const std::vector<Check>& checks = Checks());

}  // namespace ctl
