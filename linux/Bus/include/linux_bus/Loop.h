#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace cmn::bus {

// The thread on which bus connections live. Nothing on it waits for a bus or for a lock held across a wait.
// Thread-safe.
class Loop {
 public:
    using Task = std::function<void()>;

    // Throws std::system_error when the thread cannot be had.
    Loop();
    // Calls `stop`.
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    // Runs the tasks of each thread in their order. After `stop` they are destroyed instead.
    void post(Task task);
    // The same, not earlier than `delay` from now.
    void after(std::chrono::nanoseconds delay, Task task);

    // Runs the tasks posted so far, ends the thread and waits for its end. On the thread itself it does not
    // wait. Called by the owner only.
    void stop();

    bool isHere() const { return std::this_thread::get_id() == id_; }

    // Only for operations started on the loop's thread.
    boost::asio::io_context& context() { return *context_; }

 private:
    // The thread shares it: it may end after this object.
    const std::shared_ptr<boost::asio::io_context> context_ = std::make_shared<boost::asio::io_context>(1);
    std::mutex mutex_;  // held while something is handed to the context, so that nothing is after `stop`
    bool stopped_ = false;
    std::thread thread_;
    std::thread::id id_;
};

}  // namespace cmn::bus
