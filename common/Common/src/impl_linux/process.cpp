#include "impl_linux/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "common/ScopedAction.h"
#include "common/SystemUtils.h"
#include "common/exceptions.h"
#include "common/make_error.h"
#include "common/utf8.h"
#include "exec_report.h"
#include "impl_posix/exec_output.h"

namespace cmn {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void ThrowLaunchError(const std::string& path, int error) {
    throw_with_trace(make_error("[ExecProcess] Can't launch (", path,
                                ") Error: ", std::generic_category().message(error)));
}

struct Pipe {
    int read;
    int write;
};

Pipe OpenPipe(const std::string& path) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        ThrowLaunchError(path, errno);
    return {ends[0], ends[1]};
}

// While one lives, a child that has ended can be asked for its status. The kernel forgets it where SIGCHLD is
// ignored, which a program inherits from the one that started it. Other children that end meanwhile stay
// behind as they would under the default.
class StatusesKept {
 public:
    StatusesKept() {
        const std::lock_guard lock(mutex_);
        if (users_++ == 0)
            keep();
    }
    ~StatusesKept() {
        const std::lock_guard lock(mutex_);
        if (--users_ == 0 && changed_)
            sigaction(SIGCHLD, &previous_, nullptr);
    }
    StatusesKept(const StatusesKept&) = delete;
    StatusesKept& operator=(const StatusesKept&) = delete;

 private:
    static void keep() {
        sigaction(SIGCHLD, nullptr, &previous_);
        auto action = previous_;
        action.sa_flags &= ~SA_NOCLDWAIT;
        if (action.sa_handler == SIG_IGN)
            action.sa_handler = SIG_DFL;
        changed_ = action.sa_flags != previous_.sa_flags || action.sa_handler != previous_.sa_handler;
        if (changed_)
            sigaction(SIGCHLD, &action, nullptr);
    }

    static inline std::mutex mutex_;
    static inline int users_ = 0;
    static inline bool changed_ = false;
    static inline struct sigaction previous_ {};
};

// A child of this process that leads a process group. Nothing of it stays behind: one that nobody waited for
// is ended.
class Child {
 public:
    explicit Child(pid_t pid) : pid_(pid) {}
    ~Child() {
        if (!status_)
            kill();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Ends the whole group. To be called before it is known to have ended: the number may be another's then.
    void kill() {
        ::kill(-pid_, SIGKILL);
        while (!look(0)) {
        }
    }

    // False when it still runs then.
    bool waitUntil(Clock::time_point deadline) {
        // A program ends soon after its streams.
        std::chrono::microseconds pause{50};
        while (!look(WNOHANG)) {
            const auto now = Clock::now();
            if (now >= deadline)
                return false;
            std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
            pause = std::min(2 * pause, std::chrono::microseconds(20'000));
        }
        return true;
    }

    // The exit status, or the number of the signal that ended the program. Once it has ended.
    int status() const { return *status_; }

 private:
    // Whether it has ended.
    bool look(int options) {
        int status = 0;
        const pid_t result = waitpid(pid_, &status, options);
        if (result > 0)
            status_ = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
        else if (result < 0 && errno != EINTR)
            status_ = -1;
        return status_.has_value();
    }

    const pid_t pid_;
    std::optional<int> status_;
};

// Starts the program in a process group of its own, with both output streams on `output`, the standard input,
// no other descriptor, default signal handling and nothing blocked, whatever this process has set up for
// itself.
pid_t Spawn(const std::string& path, const std::vector<std::string>& arguments, int output) {
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const ScopedAction destroyActions([&] { posix_spawn_file_actions_destroy(&actions); });
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    const ScopedAction destroyAttributes([&] { posix_spawnattr_destroy(&attributes); });
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);

    pid_t pid = 0;
    const int error = posix_spawn(&pid, path.c_str(), &actions, &attributes, argv.data(), environ);
    if (error != 0)
        ThrowLaunchError(path, error);
    return pid;
}

}  // namespace

std::string ExecProcess(const std::string& path, const std::vector<std::string>& arguments, bool logFailures,
                        std::chrono::milliseconds deadline) {
    const auto latest = Clock::now() + deadline;
    const StatusesKept statusesKept;
    const auto pipe = OpenPipe(path);
    const ScopedAction closeRead([&] { close(pipe.read); });
    Child child([&] {
        const ScopedAction closeWrite([&] { close(pipe.write); });
        return Spawn(path, arguments, pipe.write);
    }());
    // Reading comes first: a program that fills the pipe does not end before somebody empties it.
    std::string output;
    const char* whyEnded = ReadExecOutput(pipe.read, latest, output);
    if (whyEnded == nullptr && !child.waitUntil(latest))
        whyEnded = kExecTookTooLong;
    if (whyEnded != nullptr) {
        child.kill();
        ReportExecEnded(path, arguments, whyEnded);
    }
    if (!IsValidUtf8(output))
        output.clear();
    ReportExecProcess(path, arguments, child.status(), output, logFailures);
    return output;
}

std::string StripDeletedMark(std::string path) {
    constexpr std::string_view kMark = " (deleted)";
    if (path.ends_with(kMark))
        path.resize(path.size() - kMark.size());
    return path;
}

std::string GetProcessPathForPID(unsigned int pid) {
    std::array<char, 4096> path{};
    const auto link = "/proc/" + std::to_string(pid) + "/exe";
    const auto length = readlink(link.c_str(), path.data(), path.size());
    return length < 1 ? std::string() : StripDeletedMark({path.data(), static_cast<std::size_t>(length)});
}

}  // namespace cmn
