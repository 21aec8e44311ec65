#include "common/log.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <string>

#include "common/LogFile.h"
#include "common/SystemUtils.h"

namespace {

struct LevelName {
    std::string_view name;
    LogLevel level;
};

constexpr std::array<LevelName, 6> kLevelNames = {{
    {"Silent", LogLevel::Silent},
    {"Error", LogLevel::Error},
    {"Warn", LogLevel::Warn},
    {"Info", LogLevel::Info},
    {"Debug", LogLevel::Debug},
    {"Trace", LogLevel::Trace},
}};

// The log itself is never destroyed, so that lines of destructors that run later at exit still find it; what
// ends at exit is its writer, after it has written everything.
cmn::LogFile& ProcessLog() {
    struct Holder {
        Holder() = default;
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;
        ~Holder() { log.close(); }
        cmn::LogFile& log = *new cmn::LogFile;
    };
    static const Holder holder;
    return holder.log;
}

std::atomic<bool> g_journal{false};

}  // namespace

LogLevel LogLevelFromString(std::string_view name) {
    for (const LevelName& known : kLevelNames) {
        if (known.name == name)
            return known.level;
    }
    return LogLevel::Info;
}

void SetLogLevel(LogLevel level) {
    ProcessLog().setLogLevel(level);
}
void SetLogPath(const char* stem) {
    ProcessLog().setLogPath(stem);
}
void SetLogFileExtension(const char* extension) {
    ProcessLog().setLogFileExtension(extension);
}
void SetLogMaxSize(unsigned int bytes) {
    ProcessLog().setLogMaxSize(bytes);
}
void SetLogConsole(bool on) {
    ProcessLog().setLogConsole(on);
}
void SetLogFileCount(unsigned int count) {
    ProcessLog().setFileCount(count);
}
void SetLogJournal(bool on) {
    g_journal = on;
}
bool LogEnabled(LogLevel level) {
    return ProcessLog().enabled(level);
}
void LogMessage(std::string_view text) {
    ProcessLog().log(text);
}

void LogFull(LogLevel level, std::string_view file, int line, std::string_view function,
             std::string_view message) {
    if (!LogEnabled(level))
        return;
    auto text = cmn::detail::LogPlace(cmn::detail::BaseName(file), line, function);
    text.append(message.data(), message.data() + message.size());
    cmn::detail::LogPlaced(level, text);
}

void LogStartMessage() {
    const std::string rule(60, '=');
    const auto local = cmn::GetLocalTime(std::time(nullptr));
    LogMessage(rule);
    LogMessage(local ? fmt::format("{:%Y.%m.%d %H:%M:%S}", *local) : std::string());
    LogMessage(rule);
}

namespace cmn::detail {

fmt::memory_buffer LogPlace(std::string_view file, int line, std::string_view function) {
    constexpr std::string_view kSeparator = " -- ";
    const fmt::format_int number(line);
    fmt::memory_buffer text;
    text.resize(file.size() + 1 + number.size() + 1 + function.size() + kSeparator.size());
    auto* to = text.data();
    const auto put = [&to](std::string_view piece) { to = std::copy(piece.begin(), piece.end(), to); };
    put(file);
    *to++ = ':';
    put({number.data(), number.size()});
    *to++ = ' ';
    put(function);
    put(kSeparator);
    return text;
}

void LogPlaced(LogLevel level, const fmt::memory_buffer& text) {
    const std::string_view line(text.data(), text.size());
    if (level == LogLevel::Error && g_journal)
        SystemJournal(line);  // it stamps its lines itself
    ProcessLog().log(level, line);
}

}  // namespace cmn::detail
