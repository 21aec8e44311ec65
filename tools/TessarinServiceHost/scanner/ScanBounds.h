#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <stop_token>

namespace host {

struct ScanLimits {
    std::chrono::milliseconds time{5'000};  // of a whole scan
    // Bytes of a text that one pattern may search more than once. Most patterns go over a text only once.
    std::uint64_t searchedAgain = std::uint64_t{1} << 30;
};

// Tells one scan when to end. Whoever works for it asks between pieces of its work and keeps what it has got
// when the answer is no. For one thread.
class ScanBounds {
 public:
    using Now = std::function<std::chrono::steady_clock::time_point()>;

    // The time starts now; `now` is called for every question.
    explicit ScanBounds(const ScanLimits& limits = {}, Now now = std::chrono::steady_clock::now,
                        std::stop_token stop = {});

    // Whether the work may go on when it has searched so many bytes more than once. After it ran out of time
    // or was stopped it may not, for good.
    bool allow(std::uint64_t searchedAgain = 0);

    // Why something was not allowed, as a text for the log; null when everything was.
    const char* reason() const { return reason_; }

 private:
    const std::uint64_t searchedAgain_;
    const Now now_;
    const std::stop_token stop_;
    const std::chrono::steady_clock::time_point end_;
    const char* reason_ = nullptr;
};

}  // namespace host
