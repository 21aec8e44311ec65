#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "common/LogQueue.h"
#include "common/log.h"

namespace cmn {

// What the log asks of the world around it. Tests put their own in its place.
class LogOutput {
 public:
    virtual ~LogOutput() = default;

    // Seconds since 1970. Called from every thread that logs.
    virtual std::time_t now();
    // Opens the file for appending, creating it, writes the text and closes it. False when the file could not
    // be opened or did not take the whole text.
    virtual bool append(const std::string& file, std::string_view text);
    // Writes to the standard error stream.
    virtual void echo(std::string_view text);
};

// Asynchronous log over a ring of size-limited files "{stem}_{index}.{extension}". Callers only hand a line
// over; one writer thread appends everything that came in since its last pass. All operations may be called
// from any thread.
class LogFile {
 public:
    LogFile();
    explicit LogFile(std::unique_ptr<LogOutput> output);
    // Writes everything that was handed in, then ends the writer.
    ~LogFile();

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // Never waits for the disk. When the queue overflows, the oldest half gives way to a notice.
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

    // Writes everything that was handed in and ends the writer. Lines logged later are written by their
    // callers.
    void close();

 private:
    void logHandler();
    bool nextBatch(LogQueue& batch);
    void writePass(const LogQueue& batch);
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
    std::uint64_t maxQueue_ = 100'000;
    bool console_ = false;
    LogQueue queue_;
    bool writerWaits_ = false;
    std::mutex queueMutex_;         // guards the above from queue_ on, running_ and writerEnded_
    std::mutex fileMutex_;          // guards the settings and what follows; held during a whole pass
    mutable std::mutex nameMutex_;  // held besides fileMutex_ while path_, extension_ or curFile_ change
    std::string lines_;             // the text of a pass
    std::time_t stampTime_ = 0;
    std::string stamp_;  // stampTime_ as the lines have it; empty before the first line
    std::condition_variable queueCondition_;
    std::thread writer_;
};

// Folder "Log" beside the program, created when missing (throws std::filesystem::filesystem_error).
std::filesystem::path GetLogPath();

}  // namespace cmn
