#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "usercommon/Semaphore.h"

// A watcher's pause whose time never passes: it holds the polling thread and lets it go one cycle at a time,
// or when the watcher ends the pause itself.
class PollingGate : public cmn::Semaphore {
 public:
    void signal() override {
        {
            const std::lock_guard lock(mutex_);
            ++count_;
            signalled_ = true;
        }
        changed_.notify_all();
    }
    bool wait(std::chrono::nanoseconds duration) override {
        std::unique_lock lock(mutex_);
        durations_.push_back(duration);
        const int mine = entered_++;
        pausing_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return count_ > 0 || allowed_ > mine; });
        pausing_ = false;
        if (count_ <= 0) {
            return false;
        }
        --count_;
        return true;
    }

    // Waits until the polling thread is in its first pause.
    void awaitFirstCycle() { awaitPauses(1); }

    // Lets one more cycle begin.
    void beginCycle() {
        {
            const std::lock_guard lock(mutex_);
            // Signals end pauses, too, without being allowed to.
            allowed_ = std::max(allowed_ + 1, pausing_ ? entered_ : entered_ + 1);
        }
        changed_.notify_all();
    }

    // Lets exactly one more cycle run and waits until it has ended.
    void cycle() {
        const auto before = static_cast<int>(pauses().size());
        beginCycle();
        awaitPauses(before + 1);
    }

    // Whether the watcher ended its pauses, be it before one began.
    bool signalled() {
        const std::lock_guard lock(mutex_);
        return signalled_;
    }

    std::vector<std::chrono::nanoseconds> pauses() {
        const std::lock_guard lock(mutex_);
        return durations_;
    }

 private:
    void awaitPauses(int count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return entered_ >= count; });
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::chrono::nanoseconds> durations_;
    long count_ = 0;
    int entered_ = 0;
    int allowed_ = 0;
    bool pausing_ = false;
    bool signalled_ = false;
};
