#pragma once

#include <sys/types.h>

#include <cstddef>

namespace fake {

// Resident memory of a process, in KiB; zeros when there is no such process.
struct ProcessMemory {
    std::size_t now = 0;
    std::size_t peak = 0;
};

ProcessMemory MemoryOf(pid_t pid);

// Its open files.
std::size_t DescriptorsOf(pid_t pid);

// The peak starts again at what the process needs now.
void ForgetPeak(pid_t pid);

}  // namespace fake
