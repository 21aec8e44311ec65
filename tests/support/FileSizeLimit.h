#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace fake {

// While it lives this process's files take no byte beyond that size, as if the disk were full. `handler`:
// what becomes of the signal that says so; it ends a process that does nothing about it.
class FileSizeLimit {
 public:
    explicit FileSizeLimit(rlim_t bytes, void (*handler)(int) = SIG_IGN)
        : handler_(std::signal(SIGXFSZ, handler)) {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
        const rlimit limit{bytes, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        (void)std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
    void (*handler_)(int);
    rlimit before_{};
};

}  // namespace fake
