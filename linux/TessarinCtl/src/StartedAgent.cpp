#include "StartedAgent.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "common/ScopedAction.h"

namespace ctl {

namespace {

constexpr std::chrono::milliseconds kPause{10};

}  // namespace

StartedAgent::StartedAgent(const std::filesystem::path& program, const std::string& argument) {
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    const cmn::ScopedAction destroyActions([&] { ::posix_spawn_file_actions_destroy(&actions); });
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    const cmn::ScopedAction destroyAttributes([&] { ::posix_spawnattr_destroy(&attributes); });
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    std::string name = program.string();
    std::string given = argument;
    const std::array<char*, 3> arguments{name.data(), given.data(), nullptr};
    const int error = ::posix_spawn(&pid_, name.c_str(), &actions, &attributes, arguments.data(), environ);
    if (error != 0) {
        throw std::runtime_error("The agent cannot be started: " + name + ": " +
                                 std::generic_category().message(error));
    }
}

std::optional<int> StartedAgent::waitFor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (std::chrono::steady_clock::now() >= end) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace ctl
