#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "usercommon/Semaphore.h"

namespace cmn {

// What the semaphores of one dispatch share, so that all their waits can be ended at once.
class SemaphoreRoom {
 public:
    // Every wait, present and future, ends at once as if its time had run out.
    void close();

 private:
    friend class LinuxSemaphore;

    std::mutex mutex_;  // guards what follows and the counts
    bool closed_ = false;
    std::vector<std::condition_variable*> waits_;
};

class LinuxSemaphore final : public Semaphore {
 public:
    LinuxSemaphore(std::shared_ptr<SemaphoreRoom> room, long count);

    void signal() override;
    bool wait(std::chrono::nanoseconds timeout) override;

 private:
    const std::shared_ptr<SemaphoreRoom> room_;
    std::condition_variable changed_;  // its own: a signal wakes nobody else
    long count_;                       // guarded by the room's mutex
};

}  // namespace cmn
