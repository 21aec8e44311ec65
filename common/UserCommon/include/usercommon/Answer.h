#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "usercommon/Dispatch.h"

namespace cmn {

// What one thread waits for and another one gives, shared by both. Thread-safe.
template <typename T>
class Answer {
 public:
    // The fallback stands for an answer that does not come in time.
    Answer(Dispatch& dispatch, T fallback)
        : given_(dispatch.createSemaphore(0)), value_(std::move(fallback)) {}

    // Dropped when it comes too late.
    void set(T value) {
        {
            const std::lock_guard lock(mutex_);
            if (!isOver_) {
                std::swap(value_, value);
            }
        }
        end();
    }
    // None will come.
    void end() { given_->signal(); }

    // Once.
    T wait(std::chrono::nanoseconds deadline) {
        given_->wait(deadline);
        const std::lock_guard lock(mutex_);
        isOver_ = true;
        return std::move(value_);
    }

 private:
    const std::shared_ptr<Semaphore> given_;
    std::mutex mutex_;  // guards what follows
    T value_;
    bool isOver_ = false;
};

}  // namespace cmn
