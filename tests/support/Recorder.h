#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace fake {

// What happened, in its order. Copies record to the same place, so a handler that holds one may be late.
// Thread-safe.
template <typename T>
class Recorder {
 public:
    Recorder() : state_(std::make_shared<State>()) {}  // said, so that all compilers let it be const

    void add(T value) const {
        const std::lock_guard lock(state_->mutex);
        state_->values.push_back(std::move(value));
    }
    void operator()(T value) const { add(std::move(value)); }

    std::vector<T> all() const {
        const std::lock_guard lock(state_->mutex);
        return state_->values;
    }
    std::size_t count() const {
        const std::lock_guard lock(state_->mutex);
        return state_->values.size();
    }
    // The latest; a new one when there is none.
    T last() const {
        const std::lock_guard lock(state_->mutex);
        return state_->values.empty() ? T{} : state_->values.back();
    }
    // Forgets them.
    std::vector<T> take() const {
        const std::lock_guard lock(state_->mutex);
        return std::exchange(state_->values, {});
    }
    void clear() const { take(); }

 private:
    struct State {
        std::mutex mutex;
        std::vector<T> values;
    };
    const std::shared_ptr<State> state_;
};

}  // namespace fake
