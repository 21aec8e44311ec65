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

// A descriptor of its own. Throws std::system_error when it could not be had.
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

// Idle threads all wait for the outer set, and the system wakes one of them. What the loop listens to is in
// the inner set, which is part of the outer one and reported once: nobody else is told before the thread that
// was told has left the loop.
struct Loop::Core : std::enable_shared_from_this<Core> {
    using Lock = std::unique_lock<std::mutex>;

    Core();

    // What a thread does.
    void run();
    void wait(Lock& lock);
    void turn(Lock& lock);
    void hear(Lock& lock);
    void runTimers(Lock& lock);
    void runPosted(Lock& lock);
    bool runTask(Lock& lock);
    void leave(Lock& lock);

    // With the mutex held.
    void addThread();
    TimerId schedule(Clock::time_point time, Task task);
    void hand(Lane::State& lane, Task&& task);  // taken only if it may still begin
    bool provideThreadFor(const Lane::State& lane);
    void wakeOne();
    void setTimer();

    const Descriptor outer;
    const Descriptor inner;
    const Descriptor waker;  // in the outer set
    const Descriptor timer;  // in the inner set

    std::mutex mutex;  // guards what follows
    std::condition_variable taskEnded;
    std::vector<Task> posted;
    std::map<TimerId, Task> timers;
    std::uint64_t lastTimer = 0;
    Clock::time_point timerSet = Clock::time_point::max();
    std::map<WatchId, std::shared_ptr<const Task>> watches;
    WatchId lastWatch = 0;
    std::vector<std::shared_ptr<Lane::State>> lanes;
    std::vector<std::thread> threads;
    std::size_t alive = 0;       // threads
    std::size_t running = 0;     // tasks of lanes
    std::size_t handedOver = 0;  // tasks that lanes got from the thread that is in the loop
    bool inLoop = false;         // a thread is
    bool heard = false;          // the inner set has something for the loop
    bool waking = false;         // a thread that waits was woken and is not there yet
    bool complained = false;
    bool stopped = false;
};

// Guarded by the loop's mutex.
struct Lane::State {
    bool mayBegin() const { return !closed && !tasks.empty() && running < most; }

    const std::size_t most;
    std::deque<Task> tasks = {};
    std::map<std::uint64_t, Task> delayed = {};
    std::uint64_t lastDelayed = 0;
    std::size_t running = 0;
    bool closed = false;
};

// Of this thread.
struct Whereabouts {
    const void* loop = nullptr;    // whose it is
    const void* inLoop = nullptr;  // in which it is
    const void* inLane = nullptr;  // of which it runs a task
};
inline thread_local Whereabouts tHere;

}  // namespace cmn::bus
