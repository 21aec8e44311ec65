#pragma once

#include <chrono>
#include <string>

namespace cmn {

// Appends what a program writes to a pipe until it has closed that: null then. Otherwise why it is to be
// ended, as `ReportExecEnded` takes it.
const char* ReadExecOutput(int fd, std::chrono::steady_clock::time_point deadline, std::string& output);

}  // namespace cmn
