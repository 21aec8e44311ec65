#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace fake {

// Holds up whoever passes until it is opened. For threads that wait in real time. Thread-safe.
class Gate {
 public:
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    // False when nobody opens it within that time.
    bool pass(std::chrono::seconds limit = std::chrono::seconds(20)) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [this] { return open_; });
    }

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

}  // namespace fake
