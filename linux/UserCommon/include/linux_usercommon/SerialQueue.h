#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "linux_bus/Lane.h"

namespace cmn {

// Where a task runs: among tasks that are over soon, or among those that take long and may wait for their
// turn, such as scans.
enum class Lane { quick, slow };

// Runs tasks one at a time and in order, each in its lane. Owned by a shared pointer.
// Thread-safe. After each task other queues get their turn.
class SerialQueue : public std::enable_shared_from_this<SerialQueue> {
 public:
    using Task = bus::Lane::Task;

    SerialQueue(std::shared_ptr<bus::Lane> quick, std::shared_ptr<bus::Lane> slow);

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

    const std::shared_ptr<bus::Lane> quick_;
    const std::shared_ptr<bus::Lane> slow_;
    std::mutex mutex_;  // guards what follows
    std::deque<Entry> tasks_;
    bool scheduled_ = false;  // a turn is with a lane or running
};

}  // namespace cmn
