#pragma once

#include <memory>

#include "linux_usercommon/SerialQueue.h"
#include "linux_usercommon/TaskPool.h"
#include "usercommon/Dispatch.h"

namespace cmn {

class QtTaskQueue;
class SemaphoreRoom;

// Thread pools for the global queues, the Qt event loop of the creating thread as main queue, real time.
// Tasks often own what owns this object (a client that waits to reconnect owns its dispatch), so the program
// ends it with `stop`.
class LinuxDispatch final : public Dispatch {
 public:
    // Enough for a client: validations of connections occupy a thread for seconds while they wait.
    static constexpr unsigned kDefaultThreads = 4;

    // To be created on the main thread; its event loop may start later. At most `slowThreads` run the slow
    // tasks of serial queues: a service wants as many as it serves peers in parallel. Throws
    // std::system_error when not even one thread of each kind can be had.
    explicit LinuxDispatch(unsigned slowThreads = kDefaultThreads);
    // May run on any thread, also within a task.
    ~LinuxDispatch() override;

    void async(QueuePriority priority, Task task) override;
    void after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) override;
    void asyncMain(Task task) override;
    std::shared_ptr<Semaphore> createSemaphore(long count) override;

    // A queue of its own. Nothing but tasks of such queues runs on its threads: whatever else is busy or
    // waits, the quick tasks are run.
    std::shared_ptr<SerialQueue> createSerialQueue();

    // Wakes every wait for a semaphore as timed out, lets running tasks finish, drops the others and ignores
    // later ones. Not to be called within a task.
    void stop();

 private:
    TaskPool& poolFor(QueuePriority priority) { return priority == QueuePriority::high ? *high_ : *normal_; }

    const std::shared_ptr<TaskPool> normal_;
    const std::shared_ptr<TaskPool> high_;
    const std::shared_ptr<TaskPool> quick_;
    const std::shared_ptr<TaskPool> slow_;
    const std::shared_ptr<SemaphoreRoom> semaphores_;
    const std::shared_ptr<QtTaskQueue> main_;
};

}  // namespace cmn
