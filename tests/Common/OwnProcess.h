#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>

namespace fake {

// How many descriptors this process has open.
inline std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator begin("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

// What `body` answers in a process of its own, a copy of this one. For what cannot be undone in a process.
inline std::string AnswerInChild(const std::function<std::string()>& body) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw std::runtime_error("pipe -- failed");
    const auto pid = fork();
    if (pid == 0) {
        std::string answer;
        try {
            answer = body();
        } catch (const std::exception& e) {
            answer = e.what();
        }
        const auto written = write(ends[1], answer.data(), answer.size());
        _exit(written == static_cast<ssize_t>(answer.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string answer;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = read(ends[0], piece.data(), piece.size())) > 0;)
        answer.append(piece.data(), static_cast<std::size_t>(count));
    close(ends[0]);
    waitpid(pid, nullptr, 0);
    return answer;
}

}  // namespace fake
