#include "QtTaskQueue.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <exception>
#include <utility>

#include "common/log.h"

namespace cmn {

class QtTaskQueue::Receiver final : public QObject {
 public:
    explicit Receiver(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

 protected:
    // Does not look at the event: every custom event of this object is a wake-up.
    void customEvent(QEvent* /*event*/) override {
        const std::shared_ptr<Shared> shared = shared_;  // a task may destroy this object
        drain(shared);
    }

 private:
    const std::shared_ptr<Shared> shared_;
};

QtTaskQueue::QtTaskQueue() {
    shared_->receiver = new Receiver(shared_);
}

QtTaskQueue::~QtTaskQueue() {
    stop();
}

void QtTaskQueue::post(Task task) {
    const std::unique_lock lock(shared_->mutex);
    if (shared_->receiver == nullptr) {
        return;
    }
    shared_->tasks.push_back(std::move(task));
    if (shared_->tasks.size() == 1) {
        QCoreApplication::postEvent(shared_->receiver, new QEvent(QEvent::User));
    }
}

void QtTaskQueue::stop() {
    std::deque<Task> dropped;
    QObject* receiver = nullptr;
    {
        const std::lock_guard lock(shared_->mutex);
        dropped.swap(shared_->tasks);
        receiver = std::exchange(shared_->receiver, nullptr);
    }
    if (receiver == nullptr) {
        return;
    }
    if (receiver->thread() == QThread::currentThread()) {
        delete receiver;
    } else {
        receiver->deleteLater();
    }
}

void QtTaskQueue::drain(const std::shared_ptr<Shared>& shared) {
    std::deque<Task> tasks;
    {
        const std::lock_guard lock(shared->mutex);
        tasks.swap(shared->tasks);
    }
    for (Task& task : tasks) {
        try {
            std::exchange(task, nullptr)();
        } catch (const std::exception& e) {
            TLOG_ERROR("Task -- failed: {}", e.what());
        }
    }
}

}  // namespace cmn
