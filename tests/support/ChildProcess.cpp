#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <thread>

namespace fake {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
    Pipe() {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe -- failed");
        }
    }
    std::array<int, 2> ends{};
};

int Remaining(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<long>(left, 0));
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> Environment(const std::map<std::string, std::string>& added) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!added.contains(text.substr(0, text.find('=')))) {
            environment.push_back(text);
        }
    }
    for (const auto& [name, value] : added) {
        environment.push_back(name + "=" + value);
    }
    return environment;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command,
                           const std::map<std::string, std::string>& environment, const std::string& folder) {
    ::signal(SIGPIPE, SIG_IGN);
    Pipe in;
    Pipe out;
    Pipe err;
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = Environment(environment);
    const auto argumentPointers = Pointers(arguments);
    const auto variablePointers = Pointers(variables);
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(in.ends[0], STDIN_FILENO);
        ::dup2(out.ends[1], STDOUT_FILENO);
        ::dup2(err.ends[1], STDERR_FILENO);
        if (::getppid() == parent && (folder.empty() || ::chdir(folder.c_str()) == 0)) {
            ::execvpe(argumentPointers[0], argumentPointers.data(), variablePointers.data());
        }
        ::_exit(127);
    }
    ::close(in.ends[0]);
    ::close(out.ends[1]);
    ::close(err.ends[1]);
    input_ = in.ends[1];
    output_ = out.ends[0];
    errors_ = err.ends[0];
    ::fcntl(errors_, F_SETFL, O_NONBLOCK);
}

ChildProcess::~ChildProcess() {
    if (!status_) {
        signal(SIGKILL);
        wait();
    }
    closeInput();
    ::close(output_);
    ::close(errors_);
}

void ChildProcess::signal(int number) const {
    if (pid_ > 0 && !status_) {
        ::kill(pid_, number);
    }
}

void ChildProcess::write(const std::string& text) const {
    if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("write to the child -- failed");
    }
}

void ChildProcess::closeInput() {
    if (input_ >= 0) {
        ::close(input_);
        input_ = -1;
    }
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        const std::size_t end = buffer_.find('\n');
        if (end != std::string::npos) {
            std::string line = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return line;
        }
        pollfd ready{output_, POLLIN, 0};
        std::array<char, 65536> bytes{};
        if (::poll(&ready, 1, Remaining(deadline)) <= 0) {
            return std::nullopt;
        }
        const ssize_t count = ::read(output_, bytes.data(), bytes.size());
        if (count <= 0) {
            return std::nullopt;
        }
        buffer_.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

std::string ChildProcess::errors() {
    std::array<char, 4096> bytes{};
    for (ssize_t count = 0; (count = ::read(errors_, bytes.data(), bytes.size())) > 0;) {
        errorText_.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return errorText_;
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!status_) {
        int status = 0;
        errors();  // a full pipe would hold the child up
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        } else if (Clock::now() >= deadline) {
            return std::nullopt;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return status_;
}

}  // namespace fake
