#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace ctl {

// A program that goes on after this one: in a session of its own, without its terminal.
class StartedAgent {
 public:
    // Throws std::runtime_error when it cannot be started.
    StartedAgent(const std::filesystem::path& program, const std::string& argument);

    // Waits so long for its end; its exit code, or 128 and the signal that ended it. Nothing: it runs.
    std::optional<int> waitFor(std::chrono::milliseconds time);

 private:
    pid_t pid_ = -1;
};

}  // namespace ctl
