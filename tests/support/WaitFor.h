#pragma once

#include <QCoreApplication>
#include <chrono>
#include <thread>

namespace fake {

template <typename Condition, typename Idle>
bool WaitIdling(Condition condition, std::chrono::milliseconds limit, Idle idle) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        idle();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Waits until the condition holds; false when that takes too long. For handlers, which must not be called
// again meanwhile.
template <typename Condition>
bool WaitInHandler(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    return WaitIdling(condition, limit, [] {});
}

// The same, running the main event loop meanwhile.
template <typename Condition>
bool WaitFor(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    return WaitIdling(condition, limit, [] { QCoreApplication::processEvents(); });
}

}  // namespace fake
