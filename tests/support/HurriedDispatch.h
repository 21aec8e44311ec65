#pragma once

#include <memory>
#include <utility>

#include "usercommon/Dispatch.h"

namespace fake {

// Another dispatch whose delays and waits are scaled.
class HurriedDispatch : public cmn::Dispatch {
 public:
    // Both take a fraction of their time.
    HurriedDispatch(std::shared_ptr<cmn::Dispatch> real, int factor)
        : HurriedDispatch(std::move(real), 1.0 / factor, 1.0 / factor) {}
    // Delays and waits for semaphores take these multiples of their time. Long waits are not stretched: they
    // occupy a thread.
    HurriedDispatch(std::shared_ptr<cmn::Dispatch> real, double delayScale, double waitScale)
        : real_(std::move(real)), delayScale_(delayScale), waitScale_(waitScale) {}

    void async(cmn::QueuePriority priority, Task task) override { real_->async(priority, std::move(task)); }
    void after(std::chrono::nanoseconds delay, cmn::QueuePriority priority, Task task) override {
        real_->after(Scaled(delay, delayScale_), priority, std::move(task));
    }
    void asyncMain(Task task) override { real_->asyncMain(std::move(task)); }
    std::shared_ptr<cmn::Semaphore> createSemaphore(long count) override {
        return std::make_shared<Semaphore>(real_->createSemaphore(count), waitScale_);
    }

 private:
    static std::chrono::nanoseconds Scaled(std::chrono::nanoseconds time, double scale) {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(time * scale);
    }

    class Semaphore : public cmn::Semaphore {
     public:
        Semaphore(std::shared_ptr<cmn::Semaphore> real, double scale)
            : real_(std::move(real)), scale_(scale) {}

        void signal() override { real_->signal(); }
        bool wait(std::chrono::nanoseconds timeout) override {
            // A deadline in the past stays one.
            const bool scaled = timeout.count() > 0 && (scale_ < 1 || timeout < std::chrono::seconds(1));
            return real_->wait(scaled ? Scaled(timeout, scale_) : timeout);
        }

     private:
        const std::shared_ptr<cmn::Semaphore> real_;
        const double scale_;
    };

    const std::shared_ptr<cmn::Dispatch> real_;
    const double delayScale_;
    const double waitScale_;
};

}  // namespace fake
