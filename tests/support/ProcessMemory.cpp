#include "support/ProcessMemory.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fake {

ProcessMemory MemoryOf(pid_t pid) {
    ProcessMemory memory;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string name; status >> name;) {
        if (name == "VmRSS:") {
            status >> memory.now;
        } else if (name == "VmHWM:") {
            status >> memory.peak;
        }
    }
    return memory;
}

std::size_t DescriptorsOf(pid_t pid) {
    const std::filesystem::directory_iterator files("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

void ForgetPeak(pid_t pid) {
    std::ofstream("/proc/" + std::to_string(pid) + "/clear_refs") << 5;
}

}  // namespace fake
