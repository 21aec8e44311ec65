#include "usercommon/SerialQueue.h"

#include <exception>
#include <utility>

#include "common/log.h"

namespace cmn {

// One turn handed to a lane. One that stops destroys it without running it: then nothing will ever run
// the tasks, and what they own is let go.
class SerialQueue::Turn {
 public:
    explicit Turn(std::shared_ptr<SerialQueue> queue) : queue_(std::move(queue)) {}
    ~Turn() {
        if (queue_) {
            queue_->discard();
        }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    void run() { std::exchange(queue_, nullptr)->runOne(); }

 private:
    std::shared_ptr<SerialQueue> queue_;
};

void SerialQueue::post(Task task, Lane lane) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back({std::move(task), lane});
        if (std::exchange(scheduled_, true)) {
            return;
        }
    }
    schedule(lane);
}

void SerialQueue::schedule(Lane lane) {
    run_(lane, [turn = std::make_shared<Turn>(shared_from_this())] { turn->run(); });
}

void SerialQueue::runOne() {
    Task task;
    {
        const std::lock_guard lock(mutex_);
        task = std::move(tasks_.front().task);
        tasks_.pop_front();
    }
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
    task = nullptr;  // what it owned is let go before the next task runs
    Lane next = Lane::quick;
    {
        const std::lock_guard lock(mutex_);
        if (tasks_.empty()) {
            scheduled_ = false;
            return;
        }
        next = tasks_.front().lane;
    }
    schedule(next);
}

void SerialQueue::discard() {
    std::deque<Entry> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(tasks_);
    scheduled_ = false;
}

}  // namespace cmn
