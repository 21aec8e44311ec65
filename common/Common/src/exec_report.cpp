#include "exec_report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "common/log.h"

namespace cmn {

void ReportExecProcess(const std::string& path, const std::vector<std::string>& arguments, int status,
                       const std::string& output, bool logFailures) {
    constexpr auto kFunction = "ExecProcess";
    const auto line = fmt::format("{} {} -- ({}) -- {}", path, fmt::join(arguments, " "), status, output);
    if (status != 0 && logFailures)
        LogFull(LogLevel::Error, __FILE__, __LINE__, kFunction, line);
    LogFull(LogLevel::Info, __FILE__, __LINE__, kFunction, line);
}

}  // namespace cmn
