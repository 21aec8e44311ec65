#pragma once

#include <memory>
#include <utility>

#include "usercommon/Dispatch.h"

namespace fake {

// Another dispatch whose delays and waits take a fraction of their time.
class HurriedDispatch : public cmn::Dispatch {
 public:
    HurriedDispatch(std::shared_ptr<cmn::Dispatch> real, int factor)
        : real_(std::move(real)), factor_(factor) {}

    void async(cmn::QueuePriority priority, Task task) override { real_->async(priority, std::move(task)); }
    void after(std::chrono::nanoseconds delay, cmn::QueuePriority priority, Task task) override {
        real_->after(delay / factor_, priority, std::move(task));
    }
    void asyncMain(Task task) override { real_->asyncMain(std::move(task)); }
    std::shared_ptr<cmn::Semaphore> createSemaphore(long count) override {
        return std::make_shared<Semaphore>(real_->createSemaphore(count), factor_);
    }

 private:
    class Semaphore : public cmn::Semaphore {
     public:
        Semaphore(std::shared_ptr<cmn::Semaphore> real, int factor)
            : real_(std::move(real)), factor_(factor) {}

        void signal() override { real_->signal(); }
        bool wait(std::chrono::nanoseconds timeout) override {
            // A deadline in the past stays one.
            return real_->wait(timeout.count() > 0 ? timeout / factor_ : timeout);
        }

     private:
        const std::shared_ptr<cmn::Semaphore> real_;
        const int factor_;
    };

    const std::shared_ptr<cmn::Dispatch> real_;
    const int factor_;
};

}  // namespace fake
