#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "linux_usercommon/TaskPool.h"

namespace cmn {

// Where a task runs: among tasks that are over soon, or among those that take long and may wait for their
// turn, such as scans.
enum class Lane { quick, slow };

// Runs tasks one at a time and in order, each on the threads of its lane. Owned by a shared pointer.
// Thread-safe. After each task other queues get their turn.
class SerialQueue : public std::enable_shared_from_this<SerialQueue> {
 public:
    using Task = TaskPool::Task;

    SerialQueue(std::shared_ptr<TaskPool> quick, std::shared_ptr<TaskPool> slow);

    // Tasks that their pool no longer runs are destroyed, and those behind them.
    void post(Task task, Lane lane = Lane::quick);

 private:
    class Turn;

    struct Entry {
        Task task;
        Lane lane = Lane::quick;
    };

    void schedule(Lane lane);
    void runOne();
    void discard();

    const std::shared_ptr<TaskPool> quick_;
    const std::shared_ptr<TaskPool> slow_;
    std::mutex mutex_;  // guards what follows
    std::deque<Entry> tasks_;
    bool scheduled_ = false;  // a turn is with a pool or running
};

}  // namespace cmn
