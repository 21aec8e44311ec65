#include "impl_posix/exec_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "exec_report.h"

namespace cmn {

namespace {

using Clock = std::chrono::steady_clock;

// What a program may write before it is ended. All of it goes into a line of the log.
constexpr std::size_t kMostOutput = std::size_t{1024} * 1024;

// Whether there is something to be read, or the end, before the deadline.
bool IsReadable(int fd, Clock::time_point deadline) {
    constexpr std::chrono::milliseconds kLongestPoll{1'000'000};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd wanted{fd, POLLIN, 0};
        const auto limit = std::clamp(left, std::chrono::milliseconds::zero(), kLongestPoll);
        const int result = poll(&wanted, 1, static_cast<int>(limit.count()));
        if (result > 0 || left <= std::chrono::milliseconds::zero())
            return result > 0;
    }
}

}  // namespace

const char* ReadExecOutput(int fd, Clock::time_point deadline, std::string& output) {
    std::array<char, 16384> piece{};
    while (IsReadable(fd, deadline)) {
        const auto count = read(fd, piece.data(), piece.size());
        if (count > 0)
            output.append(piece.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            return nullptr;
        if (output.size() > kMostOutput)
            return kExecWroteTooMuch;
        if (Clock::now() >= deadline)
            break;  // of one that floods there is always more
    }
    return kExecTookTooLong;
}

}  // namespace cmn
