#pragma once

#import <Foundation/Foundation.h>

#include <chrono>

namespace fake {

// Lets the main thread's loop run until the condition holds; false when that takes too long.
template <typename Condition>
bool RunUntil(Condition condition, std::chrono::seconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        @autoreleasepool {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.005, NO);
        }
    }
    return true;
}

}  // namespace fake
