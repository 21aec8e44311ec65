#pragma once

#include <memory>

#include "linux_bus/Lane.h"
#include "usercommon/Dispatch.h"
#include "usercommon/SerialQueue.h"

namespace cmn {

class QtTaskQueue;
class SemaphoreRoom;

// Lanes of a bus loop for the global queues, the Qt event loop of the creating thread as main queue, real
// time. Tasks often own what owns this object (a client that waits to reconnect owns its dispatch), so the
// program ends it with `stop`.
class LinuxDispatch final : public Dispatch {
 public:
    // Enough for a client: validations of connections occupy a thread for seconds while they wait.
    static constexpr unsigned kDefaultThreads = 4;

    // To be created on the main thread; its event loop may start later. At most `slowThreads` run the slow
    // tasks of serial queues: a service wants as many as it serves peers in parallel. Without a loop it has
    // one of its own. Throws std::system_error when not even one thread of each kind can be had.
    explicit LinuxDispatch(unsigned slowThreads = kDefaultThreads, std::shared_ptr<bus::Loop> loop = nullptr);
    // May run on any thread, also within a task.
    ~LinuxDispatch() override;

    void async(QueuePriority priority, Task task) override;
    void after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) override;
    void asyncMain(Task task) override;
    std::shared_ptr<Semaphore> createSemaphore(long count) override;

    // A queue of its own, in lanes that only such queues have: whatever else is busy or waits, the quick
    // tasks are run.
    std::shared_ptr<SerialQueue> createSerialQueue();

    // In which the quick tasks that it leads to are run without being handed to another thread.
    const std::shared_ptr<bus::Loop>& loop() const { return loop_; }

    // Wakes every wait for a semaphore as timed out, lets running tasks finish, drops the others and ignores
    // later ones. A loop of its own ends. Not to be called within a task.
    void stop();

 private:
    bus::Lane& laneFor(QueuePriority priority) { return priority == QueuePriority::high ? high_ : normal_; }

    const bool ownLoop_;
    const std::shared_ptr<bus::Loop> loop_;
    bus::Lane normal_;
    bus::Lane high_;
    const std::shared_ptr<bus::Lane> quick_;  // shared with the queues
    const std::shared_ptr<bus::Lane> slow_;
    const std::shared_ptr<SemaphoreRoom> semaphores_;
    const std::shared_ptr<QtTaskQueue> main_;
};

}  // namespace cmn
