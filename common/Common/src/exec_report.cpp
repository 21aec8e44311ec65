#include "exec_report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "common/log.h"

namespace cmn {

namespace {
constexpr auto kFunction = "ExecProcess";
}

void ReportExecProcess(const std::string& path, const std::vector<std::string>& arguments, int status,
                       const std::string& output, bool logFailures) {
    const auto line = fmt::format("{} {} -- ({}) -- {}", path, fmt::join(arguments, " "), status, output);
    if (status != 0 && logFailures)
        LogFull(LogLevel::Error, __FILE__, __LINE__, kFunction, line);
    LogFull(LogLevel::Info, __FILE__, __LINE__, kFunction, line);
}

void ReportExecEnded(const std::string& path, const std::vector<std::string>& arguments, const char* why) {
    LogFull(LogLevel::Warn, __FILE__, __LINE__, kFunction,
            fmt::format("{} {} -- was ended: {}", path, fmt::join(arguments, " "), why));
}

}  // namespace cmn
