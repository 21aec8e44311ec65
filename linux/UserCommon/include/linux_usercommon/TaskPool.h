#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace cmn {

// Threads that run tasks, timers and asio operations. One is there from the beginning; the others are made
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

    // Only for operations started on a thread of the pool.
    boost::asio::io_context& context();

 private:
    class Crew;

    void endThreads();

    // The threads share both: the last one may end after the pool.
    std::shared_ptr<boost::asio::io_context> context_;
    const std::shared_ptr<Crew> crew_;
};

}  // namespace cmn
