#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "linux_usercommon/TaskPool.h"

namespace cmn {

// Runs tasks one at a time and in order on the threads of a pool. Owned by a shared pointer. Thread-safe.
// After each task other queues of the pool get their turn.
class SerialQueue : public std::enable_shared_from_this<SerialQueue> {
 public:
    using Task = TaskPool::Task;

    explicit SerialQueue(std::shared_ptr<TaskPool> pool);

    // Tasks that the pool no longer runs are destroyed.
    void post(Task task);

 private:
    class Turn;

    void schedule();
    void runOne();
    void discard();

    const std::shared_ptr<TaskPool> pool_;
    std::mutex mutex_;  // guards what follows
    std::deque<Task> tasks_;
    bool scheduled_ = false;  // a turn is with the pool or running
};

}  // namespace cmn
