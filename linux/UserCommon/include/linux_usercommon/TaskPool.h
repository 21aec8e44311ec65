#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace cmn {

// Threads that run tasks, at once or at a time. One is there from the beginning; the others are made
// when a task finds none idle, and stay. Owned by a shared pointer. Thread-safe.
class TaskPool {
 public:
    using Task = std::function<void()>;

    // Throws std::system_error when the first thread cannot be had. One that cannot be had later is a line in
    // the log: the task waits for one of those that there are.
    explicit TaskPool(std::size_t mostThreads);
    // As `stop`; may run on a thread of the pool.
    ~TaskPool();
    TaskPool(const TaskPool&) = delete;
    TaskPool& operator=(const TaskPool&) = delete;

    void post(Task task);
    void after(std::chrono::nanoseconds delay, Task task);

    // Begins no further task and ignores later ones.
    void close();
    // The same; waits for the tasks that run and destroys those that did not.
    void stop();

 private:
    class Crew;

    void endThreads();

    // The threads share both: the last one may end after the pool.
    std::shared_ptr<boost::asio::io_context> context_;
    const std::shared_ptr<Crew> crew_;
};

}  // namespace cmn
