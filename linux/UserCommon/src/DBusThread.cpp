#include "DBusThread.h"

#include <QThread>
#include <future>
#include <thread>
#include <utility>

#include "QtTaskQueue.h"

namespace cmn {

namespace {

class EventLoopThread final : public QThread {
 public:
    explicit EventLoopThread(std::promise<std::shared_ptr<QtTaskQueue>> started)
        : started_(std::move(started)) {}

 protected:
    void run() override {
        const auto queue = std::make_shared<QtTaskQueue>();
        started_.set_value(queue);
        exec();
        queue->stop();
    }

 private:
    std::promise<std::shared_ptr<QtTaskQueue>> started_;
};

}  // namespace

DBusThread::DBusThread() {
    std::promise<std::shared_ptr<QtTaskQueue>> started;
    std::future<std::shared_ptr<QtTaskQueue>> queue = started.get_future();
    thread_ = std::make_unique<EventLoopThread>(std::move(started));
    thread_->setObjectName(QStringLiteral("D-Bus"));
    thread_->start();
    queue_ = queue.get();
}

DBusThread::~DBusThread() {
    stop();
}

void DBusThread::stop() {
    if (!thread_) {
        return;
    }
    queue_->post([] { QThread::currentThread()->quit(); });
    std::unique_ptr<QThread> thread = std::move(thread_);
    if (thread.get() != QThread::currentThread()) {
        thread->wait();
        return;
    }
    // A task of the thread held the last reference. A thread cannot wait for itself, so another one does.
    std::thread([thread = std::move(thread)] { thread->wait(); }).detach();
}

void DBusThread::post(Task task) {
    queue_->post(std::move(task));
}

}  // namespace cmn
