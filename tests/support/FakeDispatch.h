#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "usercommon/Dispatch.h"

namespace fake {

// Queues whose time stands still until the test moves it. Tasks run in the order of their due times, one at a
// time, on threads that take turns: a task that waits for a semaphore lets the others go on, and the time
// moves on without anybody sleeping. The same test therefore always takes the same course. Tasks may be added
// from any thread; one thread at a time drives. Waiting outside of tasks drives, too. Fails the test for an
// empty task, a negative delay and a task that throws.
//
// A task that waits occupies a thread of its queue: when all of them are, the queue's other tasks run later.
class Dispatch : public cmn::Dispatch {
 public:
    // So many threads has each priority; the main queue has one.
    explicit Dispatch(std::size_t threads = 4);
    ~Dispatch() override;

    // Ends the waits of tasks as if their time had run out, drops the tasks that never ran and ignores later
    // ones. For the end of a test: tasks often own, through what they captured, this object.
    void close();

    void async(cmn::QueuePriority priority, Task task) override;
    void after(std::chrono::nanoseconds delay, cmn::QueuePriority priority, Task task) override;
    void asyncMain(Task task) override;
    std::shared_ptr<cmn::Semaphore> createSemaphore(long count) override;

    // What a transport does, after `delay`: replies and handlers. Runs on threads of the transport's own.
    void deliver(std::chrono::nanoseconds delay, Task task);

    // Runs what is due now, and what that adds for now, until nothing is.
    void runUntilIdle();

    // Moves the time on, running what falls due on the way at its own moment.
    void advance(std::chrono::nanoseconds duration);

    std::chrono::nanoseconds now() const;
    std::size_t pending() const;  // tasks not run yet
    std::size_t waiting() const;  // tasks that wait for a semaphore

    // What the running task was queued for; to be asked from inside a task.
    enum class Queue { normal, high, main, transport };
    Queue currentQueue() const;
    // Whether the calling thread runs a task.
    bool isInTask() const;

 private:
    class Scheduler;
    class Semaphore;

    const std::shared_ptr<Scheduler> scheduler_;
};

}  // namespace fake
