#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "usercommon/Semaphore.h"

namespace cmn {

enum class QueuePriority { normal, high };

// Queues and time as the product sees them. Tests replace it with one whose time is virtual.
// All operations may be called from any thread. Tasks must not throw.
class Dispatch {
 public:
    using Task = std::function<void()>;

    virtual ~Dispatch() = default;

    // Runs the task once on the global concurrent queue of that priority; never on the calling thread's
    // stack.
    virtual void async(QueuePriority priority, Task task) = 0;

    // Runs the task once on the global concurrent queue of that priority, not earlier than `delay` from now.
    virtual void after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) = 0;

    // Runs the task once on the main thread's loop, in the order of the calls. What such a task queues runs
    // in a later turn of the loop.
    virtual void asyncMain(Task task) = 0;

    // A semaphore whose timed waits follow this object's time.
    virtual std::shared_ptr<Semaphore> createSemaphore(long count) = 0;
};

}  // namespace cmn
