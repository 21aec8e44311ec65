#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace cmn {

// A fixed number of threads that run tasks, timers and asio operations. Owned by a shared pointer.
// Thread-safe.
class TaskPool {
 public:
    using Task = std::function<void()>;

    // Throws std::system_error when the threads cannot be had.
    explicit TaskPool(std::size_t threads);
    // As `stop`; may run on a thread of the pool.
    ~TaskPool();
    TaskPool(const TaskPool&) = delete;
    TaskPool& operator=(const TaskPool&) = delete;

    void post(Task task);
    void after(std::chrono::nanoseconds delay, Task task);

    // Waits for the tasks that run, destroys those that do not run yet and ignores later ones.
    void stop();

    // Only for operations started on a thread of the pool.
    boost::asio::io_context& context() { return *context_; }

 private:
    void endThreads();

    // The threads share it: the last one may end after the pool.
    std::shared_ptr<boost::asio::io_context> context_;
    std::vector<std::thread> threads_;
    std::mutex mutex_;  // held while something is handed to the context, so that nothing is after `stop`
    bool stopped_ = false;
};

}  // namespace cmn
