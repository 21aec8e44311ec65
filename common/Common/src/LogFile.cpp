#include "common/LogFile.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "common/SystemUtils.h"
#include "common/fs.h"
#include "fatal_signals.h"
#include "log_crash.h"

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

LogFile::LogFile() : LogFile(std::make_unique<LogOutput>()) {}

LogFile::LogFile(std::unique_ptr<LogOutput> output) : output_(std::move(output)) {
    setCurFile(0);
    try {
        writer_ = std::thread([this] { logHandler(); });
    } catch (const std::system_error&) {
        writerEnded_ = true;  // the callers write their lines: what they tell may be this very failure
    }
    WatchLogForCrash(*this);
}

LogFile::~LogFile() {
    close();
    UnwatchLogForCrash(*this);
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
    // Most lines need none of these queues, not even empty ones.
    std::optional<LogQueue> own, dropped, late;
    // A long line is copied before others have to wait for it.
    if (message.size() > LogQueue::kChunkSize)
        own.emplace().pushBack({level, message, time});
    bool wake = false;
    std::uint64_t last = 0;
    {
        const std::lock_guard lock(queueMutex_);
        if (own)
            queue_.append(std::move(*own));
        else
            queue_.pushBack({level, message, time});
        last = handedIn_.load(std::memory_order_relaxed) + 1;
        handedIn_.store(last, std::memory_order_release);
        wake = std::exchange(writerWaits_, false);
        if (const auto count = overflowingLines(); count > 0) {
            dropped = queue_.dropOldest(count);
            queue_.pushFront({LogLevel::Unconditional, kOverflowNotice, time});
        }
        if (writerEnded_)
            late.emplace().swap(queue_);
    }
    if (wake)
        queueCondition_.notify_all();
    if (late)
        writePass(*late, last);
}

// How many of the oldest lines have to go.
std::size_t LogFile::overflowingLines() const {
    const std::size_t lines = queue_.size() > maxQueue_ ? maxQueue_ / 2 : 0;
    return queue_.textSize() > maxQueueText_ ? std::max(lines, queue_.countToLeave(maxQueueText_ / 2))
                                             : lines;
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
    if (!output_->append(FileName(stem, curFile_, extension_).c_str(), {}))
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
    currentName_ = names_.insert(fileName(index)).first->c_str();
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

bool LogFile::waitUntilWritten(std::chrono::milliseconds limit) const noexcept {
    const std::uint64_t last = handedIn_;
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
    const std::size_t taken = output_->append(currentName_, text).value_or(0);
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
    std::unique_lock lock(queueMutex_);
    if (queue_.empty() && batch.capacity() + queue_.capacity() > kKeptMemory) {
        LogQueue spare;
        spare.swap(queue_);
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
    batch.swap(queue_);
    last = handedIn_;
    writerEnded_ = batch.empty();
    return !batch.empty();
}

void LogFile::writePass(const LogQueue& batch, std::uint64_t last) {
    const std::lock_guard lock(fileMutex_);
    rotate();
    // With an empty stem the name is "_0.log" in the working directory; kept so.
    const auto file = fileName(curFile_);
    const bool torn = file == tornFile_;
    lines_.assign(torn ? 1 : 0, '\n');
    const std::size_t begin = lines_.size();
    formatLines(batch);
    const std::size_t taken = output_->append(file.c_str(), lines_).value_or(0);
    if (taken > 0 && lines_[taken - 1] != '\n')
        tornFile_ = file;
    else if (taken > 0 && torn)
        tornFile_.clear();
    // What no file took (a full disk, say) would be lost otherwise.
    const auto echoed = std::string_view(lines_).substr(console_ ? begin : std::max(begin, taken));
    if (!echoed.empty())
        output_->echo(echoed);
    lines_.clear();
    written_ = last;
}

void LogFile::rotate() {
    if (path_.empty() || FileSizeNoThrow(fileName(curFile_)) <= maxSize_)
        return;
    setCurFile((curFile_ + 1) % fileCount_);
    const auto next = fileName(curFile_);
    std::error_code ignored;
    std::filesystem::remove(next, ignored);
    if (next == tornFile_)
        tornFile_.clear();
}

void LogFile::releaseLines() {
    const std::lock_guard lock(fileMutex_);
    std::string().swap(lines_);
}

void LogFile::formatLines(const LogQueue& batch) {
    lines_.reserve(lines_.size() + batch.textSize() + batch.size() * kPrefixSize);
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
