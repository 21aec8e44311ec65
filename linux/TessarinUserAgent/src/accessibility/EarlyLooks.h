#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "linux_bus/Loop.h"

namespace useragent {

// Has a polling cycle begin before its time, when something happened that only a cycle can answer: another
// process of a browser is in front, or one that could not be read now can. As many early cycles as a user
// can cause; a program that causes more of them waits for the regular one. Any thread.
class EarlyLooks : public std::enable_shared_from_this<EarlyLooks> {
 public:
    // `begin` ends the pause of the polling thread, does not wait, and is called in the loop's thread.
    EarlyLooks(std::shared_ptr<cmn::bus::Loop> loop, std::function<void()> begin);

    // One cycle stands for all that are asked for until it begins. Does not wait.
    void ask(std::chrono::milliseconds delay = {});

 private:
    using Clock = cmn::bus::Loop::Clock;

    void due();

    const std::shared_ptr<cmn::bus::Loop> loop_;
    const std::function<void()> begin_;

    std::mutex mutex_;  // guards what follows
    std::optional<Clock::time_point> next_;
    Clock::time_point paidUntil_{};  // each early cycle moves it by what a cycle costs
};

}  // namespace useragent
