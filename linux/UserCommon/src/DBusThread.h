#pragma once

#include <functional>
#include <memory>

class QThread;

namespace cmn {

class QtTaskQueue;

// The thread that all Qt D-Bus work happens on. Nothing on it waits for a bus. Thread-safe.
class DBusThread {
 public:
    using Task = std::function<void()>;

    // Throws std::system_error when the thread cannot be had.
    DBusThread();
    ~DBusThread();
    DBusThread(const DBusThread&) = delete;
    DBusThread& operator=(const DBusThread&) = delete;

    // After `stop` the task is destroyed instead.
    void post(Task task);

    // Runs the tasks posted so far, ends the thread and waits for its end. On the thread itself it does not
    // wait. Called by the owner only.
    void stop();

 private:
    std::unique_ptr<QThread> thread_;
    std::shared_ptr<QtTaskQueue> queue_;
};

}  // namespace cmn
