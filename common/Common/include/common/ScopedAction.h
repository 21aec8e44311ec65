#pragma once

#include <utility>

namespace cmn {

// Runs a callable when the scope ends, while armed. The callable must not throw.
template <class F>
class [[nodiscard]] ScopedAction {
 public:
    explicit ScopedAction(F action) : action_(std::move(action)) {}
    ~ScopedAction() {
        if (armed_)
            action_();
    }

    ScopedAction(const ScopedAction&) = delete;
    ScopedAction& operator=(const ScopedAction&) = delete;

    void disarm() { armed_ = false; }

 private:
    bool armed_ = true;
    F action_;
};

}  // namespace cmn
