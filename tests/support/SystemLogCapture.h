#pragma once

#include <string>
#include <vector>

namespace fake {

// Collects what the process writes to the system log while it lives, instead of the system. One at a time.
// A program that uses it has its own `syslog`.
class SystemLogCapture {
 public:
    SystemLogCapture();
    ~SystemLogCapture();
    SystemLogCapture(const SystemLogCapture&) = delete;
    SystemLogCapture& operator=(const SystemLogCapture&) = delete;

    std::vector<std::string> lines() const;
};

}  // namespace fake
