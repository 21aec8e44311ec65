#include "support/FakeDispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace fake {

// One lock guards everything. At any moment either the driver runs or exactly one worker; a worker that waits
// gives the turn back to the driver.
class Dispatch::Scheduler {
 public:
    explicit Scheduler(std::size_t threads) : threads_(threads) {}
    ~Scheduler() {
        for (const auto& worker : workers_) {
            worker->thread.join();
        }
    }

    void add(std::chrono::nanoseconds delay, Queue queue, Task task) {
        EXPECT_TRUE(task) << "a task must be callable";
        EXPECT_GE(delay.count(), 0) << "a task cannot run in the past";
        const std::unique_lock lock(mutex_);
        if (!closed_) {
            entries_.emplace(now_ + std::max(delay, std::chrono::nanoseconds(0)),
                             Entry{queue, std::move(task)});
        }
    }

    void drive(std::chrono::nanoseconds duration) {
        std::unique_lock lock(mutex_);
        const auto limit = now_ + duration;
        while (step(lock, limit)) {
        }
        now_ = std::max(now_, limit);
    }

    void signal(long& count) {
        const std::lock_guard lock(mutex_);
        ++count;
    }

    bool wait(long& count, std::chrono::nanoseconds timeout) {
        std::unique_lock lock(mutex_);
        if (count <= 0 && timeout.count() > 0 && !closed_) {
            const auto deadline = now_ + timeout;
            if (t_worker != nullptr && t_worker->scheduler == this) {
                Waiter waiter{t_worker, &count, deadline};
                waiters_.push_back(&waiter);
                giveTurn(lock);
                waiters_.remove(&waiter);
            } else {
                while (count <= 0 && step(lock, deadline)) {
                }
                if (count <= 0) {
                    now_ = std::max(now_, deadline);
                }
            }
        }
        if (count <= 0) {
            return false;
        }
        --count;
        return true;
    }

    // From here on no task starts.
    void close() {
        std::multimap<std::chrono::nanoseconds, Entry> dropped;
        std::unique_lock lock(mutex_);
        closed_ = true;
        while (!waiters_.empty()) {
            resume(lock, *waiters_.front()->worker);
        }
        dropped.swap(entries_);
        for (const auto& worker : workers_) {
            worker->ended = true;
        }
        turnChanged_.notify_all();
        lock.unlock();  // what the tasks own may queue more when it goes
    }

    std::chrono::nanoseconds now() const {
        const std::lock_guard lock(mutex_);
        return now_;
    }
    std::size_t pending() const {
        const std::lock_guard lock(mutex_);
        return entries_.size();
    }
    std::size_t waiting() const {
        const std::lock_guard lock(mutex_);
        return waiters_.size();
    }
    static bool isInTask() { return t_worker != nullptr; }
    static Queue currentQueue() { return t_worker != nullptr ? t_worker->queue : Queue::main; }

 private:
    struct Entry {
        Queue queue;
        Task task;
    };
    struct Worker {
        Scheduler* scheduler;
        std::thread thread;
        Queue queue = Queue::main;
        Task task;
        bool ended = false;
    };
    struct Waiter {
        Worker* worker;
        const long* count;
        std::chrono::nanoseconds deadline;
    };

    // Runs or resumes what comes next at or before `limit`; false when nothing does.
    bool step(std::unique_lock<std::mutex>& lock, std::chrono::nanoseconds limit) {
        EXPECT_EQ(turn_, nullptr) << "one thread at a time drives the queues";
        const auto ready = std::find_if(waiters_.begin(), waiters_.end(),
                                        [](const Waiter* waiter) { return *waiter->count > 0; });
        if (ready != waiters_.end()) {
            resume(lock, *(*ready)->worker);
            return true;
        }
        const auto expiring =
            std::min_element(waiters_.begin(), waiters_.end(),
                             [](const auto* a, const auto* b) { return a->deadline < b->deadline; });
        const auto first = std::find_if(entries_.begin(), entries_.end(),
                                        [this](const auto& entry) { return hasThread(entry.second.queue); });
        if (first != entries_.end() && first->first <= limit &&
            (expiring == waiters_.end() || first->first <= (*expiring)->deadline)) {
            now_ = std::max(now_, first->first);
            Worker& worker = idleWorker();
            worker.queue = first->second.queue;
            worker.task = std::move(first->second.task);
            entries_.erase(first);
            resume(lock, worker);
            return true;
        }
        if (expiring != waiters_.end() && (*expiring)->deadline <= limit) {
            now_ = std::max(now_, (*expiring)->deadline);
            resume(lock, *(*expiring)->worker);
            return true;
        }
        return false;
    }

    bool hasThread(Queue queue) const {
        const auto occupied = std::count_if(waiters_.begin(), waiters_.end(), [queue](const Waiter* waiter) {
            return waiter->worker->queue == queue;
        });
        switch (queue) {
            case Queue::transport:
                return true;
            case Queue::main:
                return occupied == 0;
            default:
                return static_cast<std::size_t>(occupied) < threads_;
        }
    }

    // Called by the driver: returns when the worker waits or is done.
    void resume(std::unique_lock<std::mutex>& lock, Worker& worker) {
        turn_ = &worker;
        turnChanged_.notify_all();
        turnChanged_.wait(lock, [this] { return turn_ == nullptr; });
    }

    // Called by a worker: returns when it is resumed.
    void giveTurn(std::unique_lock<std::mutex>& lock) {
        turn_ = nullptr;
        turnChanged_.notify_all();
        turnChanged_.wait(lock, [] { return t_worker->scheduler->turn_ == t_worker; });
    }

    Worker& idleWorker() {
        if (!idle_.empty()) {
            Worker& worker = *idle_.back();
            idle_.pop_back();
            return worker;
        }
        Worker& worker = *workers_.emplace_back(std::make_unique<Worker>());
        worker.scheduler = this;
        worker.thread = std::thread([this, &worker] { work(worker); });
        return worker;
    }

    void work(Worker& worker) {
        t_worker = &worker;
        std::unique_lock lock(mutex_);
        for (;;) {
            turnChanged_.wait(lock, [&] { return turn_ == &worker || worker.ended; });
            if (worker.ended) {
                return;
            }
            Task task = std::exchange(worker.task, nullptr);
            lock.unlock();
            try {
                task();
            } catch (const std::exception& e) {
                ADD_FAILURE() << "a task must not throw: " << e.what();
            }
            task = nullptr;  // what it owned goes before the next task runs
            lock.lock();
            idle_.push_back(&worker);
            turn_ = nullptr;
            turnChanged_.notify_all();
        }
    }

    static thread_local Worker* t_worker;

    const std::size_t threads_;
    mutable std::mutex mutex_;
    std::condition_variable turnChanged_;
    std::multimap<std::chrono::nanoseconds, Entry> entries_;  // by due time, in order of arrival
    std::chrono::nanoseconds now_{0};
    std::list<Waiter*> waiters_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<Worker*> idle_;
    Worker* turn_ = nullptr;  // null: the driver's
    bool closed_ = false;
};

thread_local Dispatch::Scheduler::Worker* Dispatch::Scheduler::t_worker = nullptr;

class Dispatch::Semaphore : public cmn::Semaphore {
 public:
    Semaphore(std::shared_ptr<Scheduler> scheduler, long count)
        : scheduler_(std::move(scheduler)), count_(count) {}

    void signal() override { scheduler_->signal(count_); }
    bool wait(std::chrono::nanoseconds timeout) override { return scheduler_->wait(count_, timeout); }

 private:
    const std::shared_ptr<Scheduler> scheduler_;
    long count_;  // guarded by the scheduler
};

Dispatch::Dispatch(std::size_t threads) : scheduler_(std::make_shared<Scheduler>(threads)) {}

Dispatch::~Dispatch() {
    close();
}

void Dispatch::close() {
    scheduler_->close();
}

void Dispatch::async(cmn::QueuePriority priority, Task task) {
    after(std::chrono::nanoseconds(0), priority, std::move(task));
}

void Dispatch::after(std::chrono::nanoseconds delay, cmn::QueuePriority priority, Task task) {
    scheduler_->add(delay, priority == cmn::QueuePriority::high ? Queue::high : Queue::normal,
                    std::move(task));
}

void Dispatch::asyncMain(Task task) {
    scheduler_->add(std::chrono::nanoseconds(0), Queue::main, std::move(task));
}

void Dispatch::deliver(std::chrono::nanoseconds delay, Task task) {
    scheduler_->add(delay, Queue::transport, std::move(task));
}

std::shared_ptr<cmn::Semaphore> Dispatch::createSemaphore(long count) {
    return std::make_shared<Semaphore>(scheduler_, count);
}

void Dispatch::runUntilIdle() {
    scheduler_->drive(std::chrono::nanoseconds(0));
}

void Dispatch::advance(std::chrono::nanoseconds duration) {
    scheduler_->drive(duration);
}

std::chrono::nanoseconds Dispatch::now() const {
    return scheduler_->now();
}

std::size_t Dispatch::pending() const {
    return scheduler_->pending();
}

std::size_t Dispatch::waiting() const {
    return scheduler_->waiting();
}

Dispatch::Queue Dispatch::currentQueue() const {
    return Scheduler::currentQueue();
}

bool Dispatch::isInTask() const {
    return Scheduler::isInTask();
}

}  // namespace fake
