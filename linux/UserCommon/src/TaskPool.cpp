#include "linux_usercommon/TaskPool.h"

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/log.h"
#include "common/threads.h"

namespace cmn {

namespace {

void RunThread(boost::asio::io_context& context) {
    const auto work = boost::asio::make_work_guard(context);
    context.run();
}

}  // namespace

// The threads, and how many tasks want one. Tasks that wait in the context share it, so it must not own the
// context.
class TaskPool::Crew {
 public:
    Crew(const std::shared_ptr<boost::asio::io_context>& context, std::size_t most)
        : context_(context), most_(std::max<std::size_t>(most, 1)) {
        threads_.reserve(most_);
        addThread(context);
    }

    // Calls `hand`, which hands a task to the context, unless the pool has stopped: nothing is handed to it
    // after that.
    template <typename Hand>
    void takeTask(Hand hand) {
        const std::lock_guard lock(mutex_);
        if (!stopped_) {
            hand();
            countTask();
        }
    }

    // The same for a task that waits for its time: whatever the others do, a thread is left that notices it,
    // as long as the pool's number of threads allows it.
    template <typename Hand>
    void takeTimer(Hand hand) {
        const std::lock_guard lock(mutex_);
        if (!stopped_) {
            hand();
            watchers_ = 1;
            addMissingThreads();
        }
    }

    // Runs a task whose time has come.
    void runDue(Task task) {
        {
            const std::lock_guard lock(mutex_);
            countTask();
        }
        run(std::move(task));
    }

    // Runs a task that is counted.
    void run(Task task) {
        try {
            task();
        } catch (const std::exception& e) {
            TLOG_ERROR("Task -- failed: {}", e.what());
        }
        task = nullptr;  // while what it owns is destroyed, the thread is not idle
        const std::lock_guard lock(mutex_);
        --tasks_;
    }

    void close() {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }

    // Once it is closed they are all.
    std::vector<std::thread> takeThreads() {
        const std::lock_guard lock(mutex_);
        return std::exchange(threads_, {});
    }

 private:
    void countTask() {
        ++tasks_;
        addMissingThreads();
    }

    void addMissingThreads() {
        const auto context = context_.lock();
        try {
            while (context && !stopped_ && threads_.size() < std::min(most_, tasks_ + watchers_)) {
                addThread(context);
                complained_ = false;
            }
        } catch (const std::system_error& e) {
            if (!std::exchange(complained_, true)) {
                TLOG_WARN("Tasks have to make do with {} threads: {}", threads_.size(), e.what());
            }
        }
    }

    void addThread(const std::shared_ptr<boost::asio::io_context>& context) {
        threads_.push_back(MakeThread([&] { return std::thread([context] { RunThread(*context); }); }));
    }

    const std::weak_ptr<boost::asio::io_context> context_;
    const std::size_t most_;
    std::mutex mutex_;  // guards what follows
    std::vector<std::thread> threads_;
    std::size_t tasks_ = 0;     // that run or wait for a thread
    std::size_t watchers_ = 0;  // 1 once a task has waited for its time
    bool complained_ = false;
    bool stopped_ = false;
};

TaskPool::TaskPool(std::size_t mostThreads)
    : context_(std::make_shared<boost::asio::io_context>()),
      crew_(std::make_shared<Crew>(context_, mostThreads)) {}

TaskPool::~TaskPool() {
    endThreads();
}

void TaskPool::post(Task task) {
    crew_->takeTask([&] {
        boost::asio::post(*context_,
                          [crew = crew_, task = std::move(task)]() mutable { crew->run(std::move(task)); });
    });
}

void TaskPool::after(std::chrono::nanoseconds delay, Task task) {
    crew_->takeTimer([&] {
        const auto timer = std::make_shared<boost::asio::steady_timer>(*context_, delay);
        timer->async_wait(
            [timer, crew = crew_, task = std::move(task)](const boost::system::error_code& error) mutable {
                if (!error) {
                    crew->runDue(std::move(task));
                }
            });
    });
}

void TaskPool::close() {
    crew_->close();
    if (context_) {
        context_->stop();
    }
}

void TaskPool::stop() {
    endThreads();
    // Pending tasks may own, through what they captured, the pool itself: destroying them cuts such rings.
    context_.reset();
}

void TaskPool::endThreads() {
    close();
    for (std::thread& thread : crew_->takeThreads()) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

}  // namespace cmn
