#pragma once

#include <chrono>

namespace cmn {

// Counting semaphore. All operations may be called from any thread.
class Semaphore {
 public:
    virtual ~Semaphore() = default;

    // Adds one and wakes one waiter.
    virtual void signal() = 0;

    // Takes one, waiting at most `timeout` from now. Returns false when the time ran out. A negative timeout
    // is a deadline in the past: the call takes what is already there or returns false at once.
    virtual bool wait(std::chrono::nanoseconds timeout) = 0;
};

}  // namespace cmn
