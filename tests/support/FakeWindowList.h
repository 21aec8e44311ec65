#pragma once

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "useragent/WindowList.h"

namespace fake {

// On-screen windows as the test lays them out, front to back. Thread-safe.
class WindowList : public useragent::WindowList {
 public:
    std::optional<std::vector<useragent::WindowInfo>> copyOnScreenWindows() override {
        const std::lock_guard lock(mutex_);
        ++calls_;
        return windows_;
    }

    void set(std::optional<std::vector<useragent::WindowInfo>> windows) {
        const std::lock_guard lock(mutex_);
        windows_ = std::move(windows);
    }

    int calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

 private:
    mutable std::mutex mutex_;
    std::optional<std::vector<useragent::WindowInfo>> windows_ = std::vector<useragent::WindowInfo>{};
    int calls_ = 0;
};

}  // namespace fake
