#include "linux_usercommon/SerialQueue.h"

#include <exception>
#include <utility>

#include "common/log.h"

namespace cmn {

// One turn handed to the pool. A pool that stops destroys it without running it: then nothing will ever run
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

SerialQueue::SerialQueue(std::shared_ptr<TaskPool> pool) : pool_(std::move(pool)) {}

void SerialQueue::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        if (std::exchange(scheduled_, true)) {
            return;
        }
    }
    schedule();
}

void SerialQueue::schedule() {
    pool_->post([turn = std::make_shared<Turn>(shared_from_this())] { turn->run(); });
}

void SerialQueue::runOne() {
    Task task;
    {
        const std::lock_guard lock(mutex_);
        task = std::move(tasks_.front());
        tasks_.pop_front();
    }
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
    task = nullptr;  // what it owned is let go before the next task runs
    {
        const std::lock_guard lock(mutex_);
        if (tasks_.empty()) {
            scheduled_ = false;
            return;
        }
    }
    schedule();
}

void SerialQueue::discard() {
    std::deque<Task> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(tasks_);
    scheduled_ = false;
}

}  // namespace cmn
