#include "common/LogFile.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "common/SystemUtils.h"
#include "fatal_signals.h"
#include "log_crash.h"

namespace cmn {

namespace {

// "[ INFO] [2026.11.21 03:11:50] " and the newline.
constexpr std::size_t kPrefixSize = 32;
constexpr std::string_view kOverflowNotice = "The logs were removed from the queue because it overflowed";
constexpr std::size_t kKeptMemory = 1 << 20;
constexpr std::size_t kMaxQueueLines = 100'000;
constexpr std::size_t kMaxQueueText = 67'108'864;  // bytes: with few long lines this limit comes first

std::string_view LevelTag(LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return "[ERROR]";
        case LogLevel::Warn:
            return "[ WARN]";
        case LogLevel::Info:
            return "[ INFO]";
        case LogLevel::Debug:
            return "[DEBUG]";
        case LogLevel::Trace:
            return "[TRACE]";
        default:
            // "Silent" has no tag of its own, on purpose.
            return "[unknown_level]";
    }
}

std::string FormatStamp(std::time_t time) {
    const auto local = GetLocalTime(time);
    if (!local)
        throw fmt::format_error("time_t value out of range");
    return fmt::format(" [{:%Y.%m.%d %H:%M:%S}] ", *local);
}

}  // namespace

LogFile::LogFile() : LogFile(std::make_unique<LogOutput>()) {}

LogFile::LogFile(std::unique_ptr<LogOutput> output) : output_(std::move(output)), pass_(*output_) {
    try {
        writer_ = std::thread([this] { logHandler(); });
    } catch (const std::system_error&) {
        queue_.writerEnded = true;  // the callers write their lines: what they tell may be this very failure
    }
    WatchLogForCrash(*this);
}

LogFile::~LogFile() {
    close();
    UnwatchLogForCrash(*this);
}

void LogFile::close() {
    {
        const std::lock_guard lock(queue_.mutex);
        queue_.running = false;
        queue_.changed.notify_all();
    }
    if (writer_.joinable())
        writer_.join();
}

void LogFile::log(LogLevel level, std::string_view message) {
    if (!enabled(level))
        return;
    const auto time = output_->now();
    // Most lines need none of these queues, not even empty ones.
    std::optional<LogQueue> own, dropped, late;
    // A long line is copied before others have to wait for it.
    if (message.size() > LogQueue::kChunkSize)
        own.emplace().pushBack({level, message, time});
    bool wake = false;
    std::uint64_t last = 0;
    {
        const std::lock_guard lock(queue_.mutex);
        if (own)
            queue_.lines.append(std::move(*own));
        else
            queue_.lines.pushBack({level, message, time});
        last = queue_.handedIn.load(std::memory_order_relaxed) + 1;
        queue_.handedIn.store(last, std::memory_order_release);
        wake = std::exchange(queue_.writerWaits, false);
        if (const auto count = overflowingLines(); count > 0) {
            dropped = queue_.lines.dropOldest(count);
            queue_.lines.pushFront({LogLevel::Unconditional, kOverflowNotice, time});
        }
        if (queue_.writerEnded)
            late.emplace().swap(queue_.lines);
    }
    if (wake)
        queue_.changed.notify_all();
    if (late)
        writePass(*late, last);
}

// How many of the oldest lines have to go.
std::size_t LogFile::overflowingLines() const {
    const std::size_t lines = queue_.lines.size() > kMaxQueueLines ? kMaxQueueLines / 2 : 0;
    return queue_.lines.textSize() > kMaxQueueText
               ? std::max(lines, queue_.lines.countToLeave(kMaxQueueText / 2))
               : lines;
}

void LogFile::log(std::string_view message) {
    log(LogLevel::Unconditional, message);
}

void LogFile::setLogLevel(LogLevel level) {
    const std::lock_guard lock(pass_.mutex);
    level_.store(level, std::memory_order_relaxed);
}

void LogFile::setLogConsole(bool on) {
    const std::lock_guard lock(pass_.mutex);
    pass_.console = on;
}

void LogFile::setLogMaxSize(unsigned int bytes) {
    const std::lock_guard lock(pass_.mutex);
    pass_.files.setMaxSize(bytes);
}

void LogFile::setFileCount(unsigned int count) {
    const std::lock_guard lock(pass_.mutex);
    pass_.files.setFileCount(count);
}

void LogFile::setLogFileExtension(const std::string& extension) {
    const std::lock_guard lock(pass_.mutex);
    pass_.files.setExtension(extension);
}

void LogFile::setLogPath(const std::string& stem) {
    const std::lock_guard lock(pass_.mutex);
    pass_.files.setStem(stem);
}

bool LogFile::waitUntilWritten(std::chrono::milliseconds limit) const noexcept {
    const std::uint64_t last = queue_.handedIn;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (written_ < last) {
        if (onWriterThread() || std::chrono::steady_clock::now() >= deadline)
            return false;
        ShortPause();
    }
    return true;
}

void LogFile::endWith(std::string_view text, std::chrono::milliseconds limit) noexcept {
    // The writer that fails itself is not stuck.
    if (!waitUntilWritten(limit) && !onWriterThread())
        return;
    const std::size_t taken = pass_.files.appendNow(text);
    if (taken < text.size())
        output_->echo(text.substr(taken));
}

bool LogFile::onWriterThread() const noexcept {
    return std::this_thread::get_id() == writerId_;
}

void LogFile::logHandler() {
    writerId_ = std::this_thread::get_id();
    LogQueue batch;
    std::uint64_t last = 0;
    while (nextBatch(batch, last))
        writePass(batch, last);
}

// Takes over what was queued, and leaves the memory of the last batch for what comes. Before the writer
// sleeps it gives back what a burst has left.
bool LogFile::nextBatch(LogQueue& batch, std::uint64_t& last) {
    batch.clear();
    std::unique_lock lock(queue_.mutex);
    if (queue_.lines.empty() && batch.capacity() + queue_.lines.capacity() > kKeptMemory) {
        LogQueue spare;
        spare.swap(queue_.lines);
        lock.unlock();
        spare.release();
        batch.release();
        releasePass();
        lock.lock();
    }
    while (queue_.lines.empty() && queue_.running) {
        queue_.writerWaits = true;
        queue_.changed.wait(lock);
    }
    queue_.writerWaits = false;
    batch.swap(queue_.lines);
    last = queue_.handedIn;
    queue_.writerEnded = batch.empty();
    return !batch.empty();
}

void LogFile::writePass(const LogQueue& batch, std::uint64_t last) {
    const std::lock_guard lock(pass_.mutex);
    pass_.text.assign(1, '\n');
    formatLines(batch);
    const std::size_t taken = pass_.files.write(pass_.text);
    // What no file took (a full disk, say) would be lost otherwise.
    const auto echoed = std::string_view(pass_.text).substr(1 + (pass_.console ? 0 : taken));
    if (!echoed.empty())
        output_->echo(echoed);
    pass_.text.clear();
    written_ = last;
}

void LogFile::releasePass() {
    const std::lock_guard lock(pass_.mutex);
    std::string().swap(pass_.text);
}

void LogFile::formatLines(const LogQueue& batch) {
    pass_.text.reserve(pass_.text.size() + batch.textSize() + batch.size() * kPrefixSize);
    batch.forEach([this](const LogMessage& entry) {
        if (entry.level != LogLevel::Unconditional) {
            if (entry.time != pass_.stampTime || pass_.stamp.empty()) {
                pass_.stamp = FormatStamp(entry.time);
                pass_.stampTime = entry.time;
            }
            pass_.text += LevelTag(entry.level);
            pass_.text += pass_.stamp;
        }
        pass_.text += entry.message;
        pass_.text += '\n';
    });
}

std::filesystem::path GetLogPath() {
    auto folder = std::filesystem::path(GetSharedPath()) / "Log";
    std::filesystem::create_directories(folder);
    return folder;
}

}  // namespace cmn
