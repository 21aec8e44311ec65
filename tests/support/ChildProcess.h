#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fake {

// A real process of a test, with its standard input and output. Dies with the test program at the latest.
class ChildProcess {
 public:
    // `environment` is added to the test's own; an empty `folder` is the test's own, too.
    explicit ChildProcess(const std::vector<std::string>& command,
                          const std::map<std::string, std::string>& environment = {},
                          const std::string& folder = {});
    // Kills it if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    void write(const std::string& text) const;
    void closeInput();

    // The next line of the output, without its end; nothing when none comes in time or the output has ended.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // What went to the error stream so far.
    std::string errors();

    // Exit status, or minus the number of the signal that ended it; nothing when it still runs after the
    // time.
    std::optional<int> wait(std::chrono::milliseconds timeout = std::chrono::seconds(20));

 private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int errors_ = -1;
    std::string buffer_;
    std::string errorText_;
    std::optional<int> status_;
};

}  // namespace fake
