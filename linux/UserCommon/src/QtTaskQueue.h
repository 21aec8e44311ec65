#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

class QObject;

namespace cmn {

// Hands tasks to the Qt event loop of the thread that created it. The tasks travel through a queue of our
// own, not through Qt's events: the event only wakes the loop. Thread-safe.
class QtTaskQueue {
 public:
    using Task = std::function<void()>;

    QtTaskQueue();
    ~QtTaskQueue();
    QtTaskQueue(const QtTaskQueue&) = delete;
    QtTaskQueue& operator=(const QtTaskQueue&) = delete;

    void post(Task task);

    // Destroys the tasks that have not run and ignores later ones.
    void stop();

 private:
    class Receiver;

    struct Shared {
        std::mutex mutex;  // guards what follows
        std::deque<Task> tasks;
        QObject* receiver = nullptr;  // null after `stop`; destroyed on its own thread
    };

    static void drain(const std::shared_ptr<Shared>& shared);

    const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace cmn
