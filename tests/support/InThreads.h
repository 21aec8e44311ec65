#pragma once

#include <cstddef>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

namespace fake {

// Calls the function with 0 to count - 1, each time on a thread of its own and all at once, and waits for
// them.
inline void InThreads(int count, const std::function<void(int)>& body) {
    std::latch start(count);
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            body(thread);
        });
    }
}

}  // namespace fake
