#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "linux_bus/Loop.h"

namespace cmn::bus {

// Tasks that run beside a loop, at once or at a time, so many at the same time and no more. A thread is kept
// for each lane: tasks of another one cannot occupy it. Others are made when a task finds none idle, and
// stay. Thread-safe.
class Lane {
 public:
    using Task = Loop::Task;

    // Throws std::system_error when the first thread cannot be had. One that cannot be had later is a line in
    // the log: the task waits for one of those that there are.
    Lane(const Loop& loop, std::size_t mostTasks);
    // As `stop`; may run within a task of the lane.
    ~Lane();
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    // When the loop has ended the tasks are destroyed instead, as after `close`.
    void post(Task task);
    void after(std::chrono::nanoseconds delay, Task task);

    // Begins no further task and ignores later ones.
    void close();
    // The same; waits for the tasks that run and destroys those that did not.
    void stop();

 private:
    friend class Loop;
    struct State;

    const std::shared_ptr<Loop::Core> loop_;
    const std::shared_ptr<State> state_;
};

}  // namespace cmn::bus
