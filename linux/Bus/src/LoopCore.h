#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "linux_bus/Lane.h"
#include "linux_bus/Loop.h"

namespace cmn::bus {

// Guarded by the loop's mutex.
struct Lane::State {
    explicit State(std::size_t mostTasks) : most(mostTasks > 0 ? mostTasks : 1) {}

    bool mayBegin() const { return !closed && !tasks.empty() && running < most; }

    const std::size_t most;
    std::deque<Task> tasks;
    std::map<std::uint64_t, Task> delayed;
    std::uint64_t lastDelayed = 0;
    std::size_t running = 0;
    bool closed = false;
};

// Idle threads all wait for `outer_`, and the system wakes one of them. What the loop listens to is in
// `inner_`, which is part of the outer set and reported once: no other thread is told before the one that
// was told has left the loop.
class Loop::Core : public std::enable_shared_from_this<Core> {
 public:
    Core();

    void addFirstThread();
    void post(Task task);
    void at(Clock::time_point time, Task task);
    WatchId watch(int descriptor, Task ready);
    void wantToWrite(WatchId id, int descriptor, bool wanted);
    void unwatch(WatchId id, int descriptor);
    void stop();

    void addLane(const std::shared_ptr<Lane::State>& lane);
    void post(Lane::State& lane, Task task);
    void after(std::chrono::nanoseconds delay, const std::shared_ptr<Lane::State>& lane, Task task);
    void close(Lane::State& lane);
    void stop(const std::shared_ptr<Lane::State>& lane);

 private:
    using Lock = std::unique_lock<std::mutex>;

    class Descriptor {
     public:
        explicit Descriptor(int value);
        ~Descriptor();
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;

        operator int() const { return value_; }  // NOLINT(google-explicit-constructor)

     private:
        const int value_;
    };

    void run();
    void wait(Lock& lock);
    void turn(Lock& lock);
    void hear(Lock& lock);
    void runTimers(Lock& lock);
    void runPosted(Lock& lock);
    void leave(Lock& lock);
    bool runTask(Lock& lock);

    // With the mutex held.
    std::shared_ptr<Lane::State> next();
    bool hasThreadFor(const Lane::State& lane) const;
    bool addThread();
    void wakeOne();
    void setTimer(Clock::time_point time);

    const Descriptor outer_;
    const Descriptor inner_;
    const Descriptor wake_;   // in the outer set
    const Descriptor timer_;  // in the inner set

    std::mutex mutex_;  // guards what follows
    std::condition_variable taskEnded_;
    std::deque<Task> posted_;
    std::multimap<Clock::time_point, Task> timers_;
    std::map<WatchId, std::shared_ptr<const Task>> watches_;
    WatchId lastWatch_ = 0;
    std::vector<std::shared_ptr<Lane::State>> lanes_;
    std::vector<std::thread> threads_;
    std::size_t alive_ = 0;       // threads
    std::size_t running_ = 0;     // tasks of lanes
    std::size_t handedOver_ = 0;  // tasks that lanes got from the thread that is in the loop
    bool inLoop_ = false;         // a thread is
    bool heard_ = false;          // the inner set has something for the loop
    bool waking_ = false;         // one that waits was woken and is not there yet
    bool complained_ = false;
    bool stopped_ = false;
};

}  // namespace cmn::bus
