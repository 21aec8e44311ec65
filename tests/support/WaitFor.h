#pragma once

#include <QCoreApplication>
#include <chrono>
#include <thread>

namespace fake {

// Runs the main event loop until the condition holds; false when that takes too long.
template <typename Condition>
bool WaitFor(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace fake
