#import "macos_usercommon/MacDispatch.h"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <utility>

#include "usercommon/CallNoThrow.h"

namespace cmn {

namespace {

dispatch_queue_t GlobalQueue(QueuePriority priority) {
    return dispatch_get_global_queue(
        priority == QueuePriority::high ? DISPATCH_QUEUE_PRIORITY_HIGH : DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
}

dispatch_time_t FromNow(std::chrono::nanoseconds delay) {
    return dispatch_time(DISPATCH_TIME_NOW, delay.count());
}

// What a task leaves behind is released when it ends.
dispatch_block_t BlockOf(Dispatch::Task task) {
    return ^{
      @autoreleasepool {
          CallNoThrow("A queue's task", task);
      }
    };
}

class MacSemaphore final : public Semaphore {
 public:
    explicit MacSemaphore(long count) : semaphore_(dispatch_semaphore_create(count)) {}

    void signal() override { dispatch_semaphore_signal(semaphore_); }
    bool wait(std::chrono::nanoseconds timeout) override {
        return dispatch_semaphore_wait(semaphore_, FromNow(timeout)) == 0;
    }

 private:
    const dispatch_semaphore_t semaphore_;
};

}  // namespace

void MacDispatch::async(QueuePriority priority, Task task) {
    dispatch_async(GlobalQueue(priority), BlockOf(std::move(task)));
}

void MacDispatch::after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) {
    dispatch_after(FromNow(delay), GlobalQueue(priority), BlockOf(std::move(task)));
}

void MacDispatch::asyncMain(Task task) {
    dispatch_async(dispatch_get_main_queue(), BlockOf(std::move(task)));
}

std::shared_ptr<Semaphore> MacDispatch::createSemaphore(long count) {
    return std::make_shared<MacSemaphore>(count);
}

}  // namespace cmn
