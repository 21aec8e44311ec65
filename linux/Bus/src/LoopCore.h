#pragma once

#include <sys/epoll.h>

#include <array>
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

// What the loop listens to is in the inner set, everything that idle threads wait for in the outer one. At
// first the inner set is part of the outer one and reported once, to one thread, which keeps it: it alone
// looks into it, and waits for it when it has nothing to do. Short tasks are run by the keeper, and wake no
// other thread. It gives the set back, to be reported again, before it waits for something else; it is taken
// from a keeper whose task takes long.
struct Loop::Core : std::enable_shared_from_this<Core> {
    using Lock = std::unique_lock<std::mutex>;

    explicit Core(std::chrono::nanoseconds patienceWithTasks);

    // What a thread does.
    void run();
    void wait(Lock& lock);
    void listen(Lock& lock);
    void turn(Lock& lock);
    void hear(Lock& lock);
    void runTimers(Lock& lock);
    void runPosted(Lock& lock);
    bool runTask(Lock& lock);
    void leave(Lock& lock);

    // With the mutex held.
    bool keeps() const;
    void giveBack();
    void limitKeeping();
    void keptForLong();
    void addThread();
    TimerId schedule(Clock::time_point time, Task task);
    void hand(Lane::State& lane, Task&& task);  // taken only if it may still begin
    bool provideThreadFor(const Lane::State& lane);
    void wakeOne();
    void wakeForTasks();
    void setTimer();

    // What the sets report beside the watches.
    enum : WatchId { kTimer, kWaker, kInner, kPatienceTimer, kOwn };

    const Descriptor outer;
    const Descriptor inner;
    const Descriptor waker;          // in the outer set
    const Descriptor listenerWaker;  // in the inner set
    const Descriptor timer;          // in the inner set
    const Descriptor patienceTimer;  // in the outer set
    const std::chrono::nanoseconds patience;

    std::mutex mutex;  // guards what follows
    std::condition_variable taskEnded;
    std::vector<Task> posted;
    std::map<TimerId, Task> timers;
    std::uint64_t lastTimer = 0;
    Clock::time_point timerSet = Clock::time_point::max();
    std::map<WatchId, std::shared_ptr<const Task>> watches;
    WatchId lastWatch = kOwn;
    std::vector<std::shared_ptr<Lane::State>> lanes;
    std::vector<std::thread> threads;
    std::size_t alive = 0;    // threads
    std::size_t idle = 0;     // those that wait for the outer set
    std::size_t running = 0;  // tasks of lanes
    bool inLoop = false;      // a thread is
    bool heard = false;       // the inner set has something for the loop
    bool waking = false;      // a thread that waits for the outer set was woken and is not there yet

    const void* keeper = nullptr;           // a thread; null when the inner set is reported
    bool listening = false;                 // it waits for the inner set
    bool wakingListener = false;            // and was woken
    std::array<epoll_event, 16> heardOf{};  // what it was told; what is left is told again
    int heardOfCount = 0;                   // before the loop has heard them
    std::uint64_t looks = 0;                // how often the loop has heard
    std::uint64_t limitedAt = 0;            // the look after which the patience began
    bool isLimited = false;                 // the patience will end

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
    void* loop = nullptr;          // whose it is
    const void* inLoop = nullptr;  // in which it is
    const void* inLane = nullptr;  // of which it runs a task
};
inline thread_local Whereabouts tHere;

}  // namespace cmn::bus
