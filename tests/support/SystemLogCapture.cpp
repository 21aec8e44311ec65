#include "support/SystemLogCapture.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

std::mutex g_mutex;  // guards g_lines
std::vector<std::string> g_lines;

[[gnu::format(printf, 1, 0)]] void Keep(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int size = std::vsnprintf(nullptr, 0, format, arguments);
    std::string line(static_cast<std::size_t>(size) + 1, '\0');
    std::vsnprintf(line.data(), line.size(), format, again);
    va_end(again);
    line.pop_back();
    const std::lock_guard lock(g_mutex);
    g_lines.push_back(line);
}

}  // namespace

// Take the place of the C library's functions in the test program: hardened sources call the second.
extern "C" [[gnu::format(printf, 2, 3)]] void syslog(int /*priority*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Keep(format, arguments);
    va_end(arguments);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[gnu::format(printf, 3, 4)]] void __syslog_chk(int /*priority*/, int /*flag*/, const char* format,
                                                           ...);
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __syslog_chk(int /*priority*/, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Keep(format, arguments);
    va_end(arguments);
}

namespace fake {

SystemLogCapture::SystemLogCapture() {
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
}

SystemLogCapture::~SystemLogCapture() {
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
}

std::vector<std::string> SystemLogCapture::lines() const {
    const std::lock_guard lock(g_mutex);
    return g_lines;
}

}  // namespace fake
