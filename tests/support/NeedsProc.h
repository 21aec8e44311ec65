#pragma once

#include <gtest/gtest.h>

#include <filesystem>

// Leaves a test out on systems without files that tell about processes.
#define NEEDS_PROC()                               \
    if (!std::filesystem::exists("/proc/self/")) { \
        GTEST_SKIP() << "no /proc here";           \
    }                                              \
    static_assert(true)
