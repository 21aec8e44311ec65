#pragma once

#include <string>
#include <vector>

namespace cmn {

// Why a program was ended, for the log.
inline constexpr const char* kExecTookTooLong = "it took too long";
inline constexpr const char* kExecWroteTooMuch = "it wrote too much";

// The log lines about a program that has run: one at Info, before it the same at Error when `logFailures` is
// set and the status is not 0. In the name of `ExecProcess`.
void ReportExecProcess(const std::string& path, const std::vector<std::string>& arguments, int status,
                       const std::string& output, bool logFailures);

// The line at Warn about a program that was ended.
void ReportExecEnded(const std::string& path, const std::vector<std::string>& arguments, const char* why);

}  // namespace cmn
