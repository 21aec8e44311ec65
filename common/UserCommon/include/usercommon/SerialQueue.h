#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace cmn {

// Where a task runs: among tasks that are over soon, or among those that take long and may wait for their
// turn, such as scans.
enum class Lane { quick, slow };

// Runs tasks one at a time and in order, each in its lane, whatever threads run those. Owned by a shared
// pointer. Thread-safe. After each task other queues get their turn.
class SerialQueue : public std::enable_shared_from_this<SerialQueue> {
 public:
    using Task = std::function<void()>;

    // `run` has a lane run a task, or destroys the task where the lane has stopped.
    explicit SerialQueue(std::function<void(Lane lane, Task task)> run) : run_(std::move(run)) {}

    // Tasks that their lane no longer runs are destroyed, and those behind them.
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

    const std::function<void(Lane, Task)> run_;
    std::mutex mutex_;  // guards what follows
    std::deque<Entry> tasks_;
    bool scheduled_ = false;  // a turn is with a lane or running
};

}  // namespace cmn
