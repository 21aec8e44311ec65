#include "LinuxSemaphore.h"

#include <algorithm>
#include <utility>

#include "linux_bus/Loop.h"

namespace cmn {

namespace {
// Long enough for anyone and far from overflowing the clock.
constexpr std::chrono::hours kLongestWait{24 * 365};
}  // namespace

void SemaphoreRoom::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    for (std::condition_variable* wait : waits_) {
        wait->notify_all();
    }
}

LinuxSemaphore::LinuxSemaphore(std::shared_ptr<SemaphoreRoom> room, long count)
    : room_(std::move(room)), count_(count) {}

void LinuxSemaphore::signal() {
    {
        const std::lock_guard lock(room_->mutex_);
        ++count_;
    }
    changed_.notify_one();
}

bool LinuxSemaphore::wait(std::chrono::nanoseconds timeout) {
    bus::Loop::aboutToWait();
    std::unique_lock lock(room_->mutex_);
    if (count_ <= 0 && timeout.count() > 0) {
        const auto limited = std::min<std::chrono::nanoseconds>(timeout, kLongestWait);
        room_->waits_.push_back(&changed_);
        changed_.wait_for(lock, limited, [this] { return count_ > 0 || room_->closed_; });
        room_->waits_.erase(std::find(room_->waits_.begin(), room_->waits_.end(), &changed_));
    }
    if (count_ <= 0) {
        return false;
    }
    --count_;
    return true;
}

}  // namespace cmn
