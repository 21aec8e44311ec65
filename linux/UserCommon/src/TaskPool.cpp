#include "linux_usercommon/TaskPool.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <exception>
#include <utility>

#include "common/ScopedAction.h"
#include "common/log.h"
#include "common/threads.h"

namespace cmn {

namespace {

void RunNoThrow(const TaskPool::Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
}

void RunThread(boost::asio::io_context& context) {
    const auto work = boost::asio::make_work_guard(context);
    context.run();
}

}  // namespace

TaskPool::TaskPool(std::size_t threads) : context_(std::make_shared<boost::asio::io_context>()) {
    threads_.reserve(threads);
    ScopedAction giveUp([this] { endThreads(); });
    for (std::size_t i = 0; i < threads; ++i) {
        threads_.push_back(
            MakeThread([this] { return std::thread([context = context_] { RunThread(*context); }); }));
    }
    giveUp.disarm();
}

TaskPool::~TaskPool() {
    endThreads();
}

void TaskPool::post(Task task) {
    const std::unique_lock lock(mutex_);
    if (!stopped_) {
        boost::asio::post(*context_, [task = std::move(task)] { RunNoThrow(task); });
    }
}

void TaskPool::after(std::chrono::nanoseconds delay, Task task) {
    const std::unique_lock lock(mutex_);
    if (!stopped_) {
        const auto timer = std::make_shared<boost::asio::steady_timer>(*context_, delay);
        timer->async_wait([timer, task = std::move(task)](const boost::system::error_code& error) {
            if (!error) {
                RunNoThrow(task);
            }
        });
    }
}

void TaskPool::stop() {
    endThreads();
    // Pending tasks may own, through what they captured, the pool itself: destroying them cuts such rings.
    context_.reset();
}

void TaskPool::endThreads() {
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    if (context_) {
        context_->stop();
    }
    for (std::thread& thread : threads_) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
    threads_.clear();
}

}  // namespace cmn
