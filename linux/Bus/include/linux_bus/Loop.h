#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace cmn::bus {

// Where bus connections live. One thread at a time is in the loop; nothing there waits for a bus or for a
// lock held across a wait. The threads of the loop run the tasks of its lanes (`Lane`), too: the one that
// heard something leaves the loop and goes on with what came of it. It listens again when that is done;
// another one listens when it waits for something, or takes long. Thread-safe.
class Loop {
 public:
    using Task = std::function<void()>;
    using Clock = std::chrono::steady_clock;
    using WatchId = std::uint64_t;
    using TimerId = std::pair<Clock::time_point, std::uint64_t>;

    // Tasks that are over soon take a fraction of it.
    static constexpr std::chrono::milliseconds kPatience{1};

    // A thread that heard something and runs the tasks of it for longer than `patience`, or twice that,
    // listens no more. Throws std::system_error when a thread cannot be had.
    explicit Loop(std::chrono::nanoseconds patience = kPatience);
    // Calls `stop`.
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    // Runs the tasks of each thread in their order, in the loop. After `stop` they are destroyed instead.
    void post(Task task);
    // The same, not earlier than that time. One that was cancelled does not begin any more, and is destroyed.
    TimerId at(Clock::time_point time, Task task);
    void after(std::chrono::nanoseconds delay, Task task) { at(Clock::now() + delay, std::move(task)); }
    void cancel(const TimerId& timer);

    // Says that the calling thread is about to wait, maybe for what comes through a loop, or is handed to one
    // of its lanes: others listen and run those tasks at once. Of use within a task of a lane only.
    static void aboutToWait();

    // Runs `ready` in the loop as long as the descriptor can be read, or written when that is wanted. It may
    // run once more after `unwatch`, which comes before the descriptor is closed. 0: it failed, see errno.
    WatchId watch(int descriptor, Task ready);
    void wantToWrite(WatchId id, int descriptor, bool wanted);
    void unwatch(WatchId id, int descriptor);

    // Runs the tasks posted so far, ends the threads and waits for their end. On one of its own threads it
    // does not wait. Called by the owner only.
    void stop();

 private:
    friend class Lane;
    struct Core;

    // The threads share it: they may end after this object.
    const std::shared_ptr<Core> core_;
};

}  // namespace cmn::bus
