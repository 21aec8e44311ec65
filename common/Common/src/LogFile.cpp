#include "common/LogFile.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "common/SystemUtils.h"
#include "common/fs.h"

namespace cmn {

namespace {

// "[ INFO] [2026.11.21 03:11:50] " and the newline.
constexpr std::size_t kPrefixSize = 32;
constexpr std::string_view kOverflowNotice = "The logs were removed from the queue because it overflowed";
constexpr std::size_t kKeptMemory = 1 << 20;

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

std::string FileName(const std::string& stem, std::uint32_t index, const std::string& extension) {
    return fmt::format("{}_{}.{}", stem, index, extension);
}

std::string FormatStamp(std::time_t time) {
    const auto local = GetLocalTime(time);
    if (!local)
        throw fmt::format_error("time_t value out of range");
    return fmt::format(" [{:%Y.%m.%d %H:%M:%S}] ", *local);
}

}  // namespace

std::time_t LogOutput::now() {
    // The system clock without its fraction, which would cost ten times as much.
    return std::time(nullptr);
}

bool LogOutput::append(const std::string& file, std::string_view text) {
    std::ofstream out(file, std::ios::binary | std::ios::app);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    return out.good();
}

void LogOutput::echo(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

LogFile::LogFile() : LogFile(std::make_unique<LogOutput>()) {}

LogFile::LogFile(std::unique_ptr<LogOutput> output)
    : output_(std::move(output)), writer_([this] { logHandler(); }) {}

LogFile::~LogFile() {
    close();
}

void LogFile::close() {
    {
        const std::lock_guard lock(queueMutex_);
        running_ = false;
        queueCondition_.notify_all();
    }
    if (writer_.joinable())
        writer_.join();
}

void LogFile::log(LogLevel level, std::string_view message) {
    if (!enabled(level))
        return;
    const auto time = output_->now();
    LogQueue late;
    bool wake = false;
    {
        const std::lock_guard lock(queueMutex_);
        queue_.pushBack({level, message, time});
        wake = std::exchange(writerWaits_, false);
        if (queue_.size() > maxQueue_) {
            queue_.dropOldest(maxQueue_ / 2);
            queue_.pushFront({LogLevel::Unconditional, kOverflowNotice, time});
        }
        if (writerEnded_)
            std::swap(late, queue_);
    }
    if (wake)
        queueCondition_.notify_all();
    if (!late.empty())
        writePass(late);
}

void LogFile::log(std::string_view message) {
    log(LogLevel::Unconditional, message);
}

void LogFile::setLogLevel(LogLevel level) {
    const std::lock_guard lock(fileMutex_);
    level_.store(level, std::memory_order_relaxed);
}

void LogFile::setLogConsole(bool on) {
    const std::lock_guard lock(fileMutex_);
    console_ = on;
}

void LogFile::setLogMaxSize(unsigned int bytes) {
    const std::lock_guard lock(fileMutex_);
    maxSize_ = bytes;
    RefreshCurFile();
}

void LogFile::setFileCount(unsigned int count) {
    if (count == 0)
        return;
    const std::lock_guard lock(fileMutex_);
    fileCount_ = count;
    RefreshCurFile();
}

void LogFile::setLogFileExtension(const std::string& extension) {
    if (extension.empty())
        return;
    const std::lock_guard lock(fileMutex_);
    {
        const std::lock_guard name(nameMutex_);
        extension_ = extension;
    }
    RefreshCurFile();
}

void LogFile::setLogPath(const std::string& stem) {
    if (stem.empty())
        return;
    const std::lock_guard lock(fileMutex_);
    if (!output_->append(FileName(stem, curFile_, extension_), {}))
        return;
    {
        const std::lock_guard name(nameMutex_);
        path_ = stem;
    }
    RefreshCurFile();
}

std::string LogFile::getLogPath() const {
    const std::lock_guard name(nameMutex_);
    return fileName(curFile_);
}

std::string LogFile::getLogPath(const std::string& stem) const {
    const std::lock_guard name(nameMutex_);
    return FileName(stem, curFile_, extension_);
}

std::string LogFile::fileName(std::uint32_t index) const {
    return FileName(path_, index, extension_);
}

void LogFile::setCurFile(std::uint32_t index) {
    const std::lock_guard name(nameMutex_);
    curFile_ = index;
}

// The first file with room below the limit, else the one written longest ago. The writer's own test is
// another one on purpose: it moves on only when a file is above the limit.
void LogFile::RefreshCurFile() {
    if (fileCount_ == 0) {
        setCurFile(0);
        return;
    }
    for (std::uint32_t i = 0; i < fileCount_; ++i) {
        if (FileSizeNoThrow(fileName(i)) < maxSize_) {
            setCurFile(i);
            return;
        }
    }
    std::uint32_t oldest = 0;
    auto oldestTime = FileLastWriteTimeNoThrow(fileName(0));
    for (std::uint32_t i = 1; i < fileCount_; ++i) {
        const auto time = FileLastWriteTimeNoThrow(fileName(i));
        if (time < oldestTime) {
            oldest = i;
            oldestTime = time;
        }
    }
    setCurFile(oldest);
}

void LogFile::logHandler() {
    LogQueue batch;
    while (nextBatch(batch))
        writePass(batch);
}

// Takes over what was queued, and leaves the memory of the last batch for what comes. Before the writer
// sleeps it gives back what a burst has left.
bool LogFile::nextBatch(LogQueue& batch) {
    batch.clear();
    std::unique_lock lock(queueMutex_);
    if (queue_.empty() && batch.capacity() + queue_.capacity() > kKeptMemory) {
        LogQueue spare;
        std::swap(spare, queue_);
        lock.unlock();
        spare.release();
        batch.release();
        releaseLines();
        lock.lock();
    }
    while (queue_.empty() && running_) {
        writerWaits_ = true;
        queueCondition_.wait(lock);
    }
    writerWaits_ = false;
    std::swap(batch, queue_);
    writerEnded_ = batch.empty();
    return !batch.empty();
}

void LogFile::writePass(const LogQueue& batch) {
    const std::lock_guard lock(fileMutex_);
    rotate();
    formatLines(batch);
    // With an empty stem the name is "_0.log" in the working directory; kept so.
    const bool written = output_->append(fileName(curFile_), lines_);
    // Also when the file opened but did not take the text (a full disk): the lines would be lost otherwise.
    if (!written || console_)
        output_->echo(lines_);
    lines_.clear();
}

void LogFile::rotate() {
    if (path_.empty() || FileSizeNoThrow(fileName(curFile_)) <= maxSize_)
        return;
    setCurFile((curFile_ + 1) % fileCount_);
    std::error_code ignored;
    std::filesystem::remove(fileName(curFile_), ignored);
}

void LogFile::releaseLines() {
    const std::lock_guard lock(fileMutex_);
    std::string().swap(lines_);
}

void LogFile::formatLines(const LogQueue& batch) {
    lines_.reserve(batch.textSize() + batch.size() * kPrefixSize);
    batch.forEach([this](const LogMessage& entry) {
        if (entry.level != LogLevel::Unconditional) {
            if (entry.time != stampTime_ || stamp_.empty()) {
                stamp_ = FormatStamp(entry.time);
                stampTime_ = entry.time;
            }
            lines_ += LevelTag(entry.level);
            lines_ += stamp_;
        }
        lines_ += entry.message;
        lines_ += '\n';
    });
}

std::filesystem::path GetLogPath() {
    auto folder = std::filesystem::path(GetSharedPath()) / "Log";
    std::filesystem::create_directories(folder);
    return folder;
}

}  // namespace cmn
