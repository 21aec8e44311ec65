#include "DBusThread.h"

#include <QThread>
#include <cerrno>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "QtTaskQueue.h"
#include "common/threads.h"

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
    if (!thread_->isRunning()) {  // the library only prints a warning
        ThrowThreadFailure(std::error_code(EAGAIN, std::generic_category()));
    }
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
    QThread* const left = thread.release();
    try {
        std::thread([left] {
            left->wait();
            delete left;
        }).detach();
    } catch (const std::system_error&) {
        // It ends all the same; only its object, which must not go before it, stays.
    }
}

void DBusThread::post(Task task) {
    queue_->post(std::move(task));
}

}  // namespace cmn
