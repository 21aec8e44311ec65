#pragma once

#include <string>
#include <vector>

namespace cmn {

// The log lines about a program that has run: one at Info, before it the same at Error when `logFailures` is
// set and the status is not 0. In the name of `ExecProcess`.
void ReportExecProcess(const std::string& path, const std::vector<std::string>& arguments, int status,
                       const std::string& output, bool logFailures);

}  // namespace cmn
