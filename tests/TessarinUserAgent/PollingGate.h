#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

// Holds a watcher's polling thread in its pause and lets it go one cycle at a time, so that no test waits in
// real time.
class PollingGate {
 public:
    ~PollingGate() { open(); }

    std::function<void(std::chrono::nanoseconds)> sleeper() {
        return [this](std::chrono::nanoseconds duration) { pause(duration); };
    }

    // Waits until the polling thread is in its first pause.
    void awaitFirstCycle() { awaitPauses(1); }

    // Lets exactly one more cycle run and waits until it has ended.
    void cycle() {
        int target = 0;
        {
            const std::lock_guard lock(mutex_);
            ++allowed_;
            target = entered_ + 1;
        }
        changed_.notify_all();
        awaitPauses(target);
    }

    // Lets everything through from now on.
    void open() {
        {
            const std::lock_guard lock(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }

    std::vector<std::chrono::nanoseconds> pauses() {
        const std::lock_guard lock(mutex_);
        return durations_;
    }

 private:
    void pause(std::chrono::nanoseconds duration) {
        std::unique_lock lock(mutex_);
        durations_.push_back(duration);
        const int mine = entered_++;
        changed_.notify_all();
        changed_.wait(lock, [&] { return open_ || allowed_ > mine; });
    }
    void awaitPauses(int count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return entered_ >= count; });
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::chrono::nanoseconds> durations_;
    int entered_ = 0;
    int allowed_ = 0;
    bool open_ = false;
};
