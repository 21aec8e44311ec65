#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "doctor/Check.h"
#include "doctor/Machine.h"

namespace ctl {

// Of one check, and of mending what it found.
inline constexpr std::chrono::milliseconds kCheckDeadline{2000};

struct Examined {
    const Check* check;
    Finding finding;
};

// Runs checks. Each has a thread of its own: one that hangs, in a file system say, is left behind after the
// deadline, and counts as wrong.
class Doctor {
 public:
    explicit Doctor(std::shared_ptr<const Machine> machine,
                    std::chrono::milliseconds deadline = kCheckDeadline)
        : machine_(std::move(machine)), deadline_(deadline) {}

    // The check must outlive what is returned.
    Examined examine(const Check& check);

    // Mends what was found, if that is possible without rights; empty, or why it could not be done.
    std::string mend(const Finding& finding);

    // Whether a thread was left behind: the program has to end without waiting for anybody.
    bool leftBehind() const { return leftBehind_; }

 private:
    // False when it did not end in time.
    bool runInTime(const std::function<void()>& task);
    cmn::bus::Deadline endOfTask() const;

    const std::shared_ptr<const Machine> machine_;
    const std::chrono::milliseconds deadline_;
    bool leftBehind_ = false;
};

// Whether nothing is wrong.
bool IsHealthy(const std::vector<Examined>& examined);

// One line, with its end.
std::string LineOf(const Examined& examined);

// {"healthy": bool, "checks": [{"id", "title", "verdict", "text", "remedy", "canFix"}]}
std::string JsonOf(const std::vector<Examined>& examined);

}  // namespace ctl
