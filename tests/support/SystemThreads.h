#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>

namespace fake {

// Counts the threads that this process has got since it was made. The system still shows for a moment one
// that ended before.
class NewThreads {
 public:
    std::size_t count() const {
        std::size_t added = 0;
        for (const std::string& thread : All()) {
            added += before_.count(thread) == 0 ? 1 : 0;
        }
        return added;
    }

 private:
    static std::set<std::string> All() {
        std::set<std::string> threads;
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            threads.insert(thread.path().filename());
        }
        return threads;
    }

    const std::set<std::string> before_ = All();
};

// While it lives, the system gives no threads: their stacks would not fit into memory.
class NoMoreThreads {
 public:
    NoMoreThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 50U);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        pthread_attr_destroy(&huge);
    }
    ~NoMoreThreads() {
        EXPECT_EQ(pthread_setattr_default_np(&before_), 0);
        pthread_attr_destroy(&before_);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
    pthread_attr_t before_{};
};

}  // namespace fake
