#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "common/LogOutput.h"
#include "common/LogQueue.h"
#include "common/log.h"

namespace cmn {

// Asynchronous log over a ring of size-limited files "{stem}_{index}.{extension}". Callers only hand a line
// over; one writer thread appends everything that came in since its last pass. All operations may be called
// from any thread.
//
// The queue holds up to 100,000 lines and 64 MiB of text, and a longer line until the next one comes. What is
// just being written comes on top of that, as it was queued and as it is written.
class LogFile {
 public:
    LogFile();
    explicit LogFile(std::unique_ptr<LogOutput> output);
    // Writes everything that was handed in, then ends the writer.
    ~LogFile();

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // Never waits for the disk. When the queue overflows, the oldest half of its lines or of its text gives
    // way to a notice.
    void log(LogLevel level, std::string_view message);
    void log(std::string_view message);
    bool enabled(LogLevel level) const { return level <= level_.load(std::memory_order_relaxed); }

    // The setters wait for a pass that is just being written.
    void setLogLevel(LogLevel level);
    void setLogConsole(bool on);
    void setLogMaxSize(unsigned int bytes);
    void setFileCount(unsigned int count);
    void setLogFileExtension(const std::string& extension);
    void setLogPath(const std::string& stem);

    // Full name of the file being written. Does not wait for a pass.
    std::string getLogPath() const;
    // The same with another stem.
    std::string getLogPath(const std::string& stem) const;

    // Waits until everything that was handed in before the call is written. False when the time is over, and
    // at once on the writer's own thread, which would wait for itself. May be called in a signal handler.
    bool waitUntilWritten(std::chrono::milliseconds limit) const noexcept;

    // For the end of a process that fails, also in a signal handler: waits in this way, and unless the writer
    // is stuck appends the text, which ends in a newline, past the queue.
    void endWith(std::string_view text, std::chrono::milliseconds limit) noexcept;

    // Writes everything that was handed in and ends the writer. Lines logged later are written by their
    // callers.
    void close();

 private:
    void logHandler();
    bool onWriterThread() const noexcept;
    std::size_t overflowingLines() const;
    bool nextBatch(LogQueue& batch, std::uint64_t& last);
    void writePass(const LogQueue& batch, std::uint64_t last);
    void rotate();
    void releaseLines();
    void formatLines(const LogQueue& batch);
    void RefreshCurFile();
    void setCurFile(std::uint32_t index);
    std::string fileName(std::uint32_t index) const;

    std::unique_ptr<LogOutput> output_;
    std::uint32_t curFile_ = 0;
    std::uint32_t fileCount_ = 2;
    bool running_ = true;
    bool writerEnded_ = false;
    std::atomic<LogLevel> level_{LogLevel::Info};
    std::string path_;
    std::string extension_ = "log";
    std::uint64_t maxSize_ = 15'728'640;
    std::uint64_t maxQueue_ = 100'000;         // lines
    std::uint64_t maxQueueText_ = 67'108'864;  // bytes: with few long lines this limit comes first
    bool console_ = false;
    LogQueue queue_;
    std::atomic<std::uint64_t> handedIn_{0};  // how many lines so far
    bool writerWaits_ = false;
    std::mutex queueMutex_;         // guards the above from queue_ on, running_ and writerEnded_
    std::mutex fileMutex_;          // guards the settings and what follows; held during a whole pass
    mutable std::mutex nameMutex_;  // held besides fileMutex_ while path_, extension_ or curFile_ change
    std::string lines_;             // the text of a pass
    std::set<std::string> names_;   // of all files so far: who writes past the queue holds no lock
    std::atomic<const char*> currentName_{nullptr};  // one of them
    std::string tornFile_;                           // the file whose last line was left unfinished
    std::time_t stampTime_ = 0;
    std::string stamp_;                      // stampTime_ as the lines have it; empty before the first line
    std::atomic<std::uint64_t> written_{0};  // how many of those handed in are done with
    std::atomic<std::thread::id> writerId_;
    std::condition_variable queueCondition_;
    std::thread writer_;
};

// Folder "Log" beside the program, created when missing (throws std::filesystem::filesystem_error).
std::filesystem::path GetLogPath();

}  // namespace cmn
