#pragma once

#include <fmt/compile.h>

#include <cstdint>
#include <string_view>

// A message passes when its level is at most the configured one.
enum class LogLevel : std::int32_t {
    Unconditional = 0,  // passes every threshold; its line has neither tag nor time stamp
    Silent = 1,
    Error = 2,
    Warn = 3,
    Info = 4,
    Debug = 5,
    Trace = 6,
};

// "Silent", "Error", "Warn", "Info", "Debug", "Trace", spelled exactly so; any other name is Info.
LogLevel LogLevelFromString(std::string_view name);

// All of these act on the process's one log, which starts at its first use and is drained when the process
// exits. They may be called from any thread. None of them waits for the disk, but a setter waits for a batch
// that is just being written.
void SetLogLevel(LogLevel level);
// Folder and base name of the log files, without index and extension. Ignored when empty or not writable.
void SetLogPath(const char* stem);
void SetLogFileExtension(const char* extension);  // without the dot; ignored when empty
void SetLogMaxSize(unsigned int bytes);
void SetLogConsole(bool on);               // echo every line to the standard error stream as well
void SetLogFileCount(unsigned int count);  // ignored when 0
void SetLogJournal(bool on);               // lines of Error level go to the system's journal as well, at once

// Whether a message of this level would be written now.
bool LogEnabled(LogLevel level);

// One line at the unconditional level.
void LogMessage(std::string_view text);

// One line "{file base name}:{line} {function} -- {message}". `file` may be a whole path.
void LogFull(LogLevel level, std::string_view file, int line, std::string_view function,
             std::string_view message);

// A rule, the local time and a rule again, at the unconditional level.
void LogStartMessage();

// From now on an uncaught exception, abort() and a fault of the processor give the logs of the process up to
// one second to write what they were handed, and leave a line at the unconditional level in each that says
// what ended the process. For `main`, before there are other threads; it does not start the log.
void InstallLogCrashHandlers();

namespace cmn::detail {

constexpr std::string_view BaseName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}
consteval std::string_view CompiledBaseName(std::string_view path) {
    return BaseName(path);
}

// "{file}:{line} {function} -- ", to which the message is added.
fmt::memory_buffer LogPlace(std::string_view file, int line, std::string_view function);
void LogPlaced(LogLevel level, const fmt::memory_buffer& text);

template <typename Format, typename... Args>
void LogFormatted(LogLevel level, std::string_view file, int line, std::string_view function,
                  const Format& format, const Args&... args) {
    auto text = LogPlace(file, line, function);
    fmt::format_to(fmt::appender(text), format, args...);
    LogPlaced(level, text);
}

}  // namespace cmn::detail

// The body is formatted only when its level passes. The format is a literal: it is taken apart when it is
// compiled, which saves a third of what a line costs its caller.
#define TLOG_AT(level, format, ...)                                                                 \
    do {                                                                                            \
        if (::LogEnabled(level))                                                                    \
            ::cmn::detail::LogFormatted(level, ::cmn::detail::CompiledBaseName(__FILE__), __LINE__, \
                                        __func__, FMT_COMPILE(format) __VA_OPT__(, ) __VA_ARGS__);  \
    } while (false)

#define TLOG_ERROR(...) TLOG_AT(::LogLevel::Error, __VA_ARGS__)
#define TLOG_WARN(...) TLOG_AT(::LogLevel::Warn, __VA_ARGS__)
#define TLOG_INFO(...) TLOG_AT(::LogLevel::Info, __VA_ARGS__)
#define TLOG_DEBUG(...) TLOG_AT(::LogLevel::Debug, __VA_ARGS__)
#define TLOG_TRACE(...) TLOG_AT(::LogLevel::Trace, __VA_ARGS__)
