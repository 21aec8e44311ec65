#pragma once

#include <memory>

#include "usercommon/Dispatch.h"

namespace cmn {

// The product's queues and time on libdispatch. Holds nothing.
class MacDispatch final : public Dispatch {
 public:
    void async(QueuePriority priority, Task task) override;
    void after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) override;
    void asyncMain(Task task) override;
    std::shared_ptr<Semaphore> createSemaphore(long count) override;
};

}  // namespace cmn
