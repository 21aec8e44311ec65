#include "log_crash.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <string>
#include <string_view>

#include "common/LogFile.h"
#include "common/log.h"
#include "common/utf8.h"
#include "fatal_signals.h"

namespace cmn {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLimit{1};
constexpr std::size_t kLongestNote = 1'024;

std::array<std::atomic<LogFile*>, 8> g_logs;
std::atomic<bool> g_ending{false};
std::terminate_handler g_terminateBefore = nullptr;

void Replace(LogFile* from, LogFile* to) noexcept {
    for (auto& place : g_logs) {
        auto* expected = from;
        if (place.compare_exchange_strong(expected, to))
            return;
    }
}

// Lets every log write what it was handed, and leave a note of why the process ends. It may run in a signal
// handler while any thread, this one too, holds any lock: so it takes none and asks for no memory. A log that
// is stuck is left alone.
void EndLogs(std::initializer_list<std::string_view> note) noexcept {
    // An uncaught exception ends in abort().
    if (g_ending.exchange(true))
        return;
    std::array<char, kLongestNote> text{};
    auto* end = text.data();
    for (const auto piece : note) {
        const auto room = static_cast<std::size_t>(text.data() + text.size() - 1 - end);
        end = std::copy_n(piece.data(), std::min(piece.size(), room), end);
    }
    *end++ = '\n';
    const auto deadline = Clock::now() + kLimit;
    for (auto& place : g_logs) {
        if (auto* log = place.load()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            log->endWith({text.data(), static_cast<std::size_t>(end - text.data())}, left);
        }
    }
}

void HandleSignal(std::string_view name) noexcept {
    EndLogs({"Ended by the signal ", name});
}

[[noreturn]] void HandleTerminate() {
    try {
        if (const auto error = std::current_exception())
            std::rethrow_exception(error);
        EndLogs({"Ended by std::terminate"});
    } catch (const std::exception& error) {
        EndLogs({"Ended by an exception that nobody caught: ", EscapeControls(error.what())});
    } catch (...) {
        EndLogs({"Ended by an exception that nobody caught"});
    }
    g_terminateBefore();
    std::abort();
}

}  // namespace

void WatchLogForCrash(LogFile& log) noexcept {
    Replace(nullptr, &log);
}

void UnwatchLogForCrash(LogFile& log) noexcept {
    Replace(&log, nullptr);
}

}  // namespace cmn

void InstallLogCrashHandlers() {
    static const bool once = [] {
        cmn::g_terminateBefore = std::set_terminate(cmn::HandleTerminate);
        cmn::HandleFatalSignals(cmn::HandleSignal);
        return true;
    }();
    (void)once;
}
