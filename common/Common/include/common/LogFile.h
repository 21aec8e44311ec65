#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "common/LogOutput.h"
#include "common/LogQueue.h"
#include "common/LogRing.h"
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
    std::string getLogPath() const { return pass_.files.name(); }
    // Full name of that file if the log had this stem.
    std::string getLogPath(const std::string& stem) const { return pass_.files.name(stem); }

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
    void releasePass();
    void formatLines(const LogQueue& batch);

    const std::unique_ptr<LogOutput> output_;
    std::atomic<LogLevel> level_{LogLevel::Info};

    // What was handed in. The mutex guards it.
    struct Queue {
        std::mutex mutex;
        std::condition_variable changed;
        LogQueue lines;
        bool writerWaits = false;
        bool writerEnded = false;
        bool running = true;
        std::atomic<std::uint64_t> handedIn{0};  // how many lines so far; read without the mutex
    };
    Queue queue_;

    // What is being written. The mutex is held during a whole pass.
    struct Pass {
        explicit Pass(LogOutput& output) : files(output) {}
        std::mutex mutex;
        LogRing files;  // its name is asked for without the mutex
        bool console = false;
        std::string text;
        std::time_t stampTime = 0;
        std::string stamp;  // stampTime as the lines have it; empty before the first line
    };
    Pass pass_;

    std::atomic<std::uint64_t> written_{0};  // how many of those handed in are done with
    std::atomic<std::thread::id> writerId_;
    std::thread writer_;
};

// Folder "Log" beside the program, created when missing (throws std::filesystem::filesystem_error).
std::filesystem::path GetLogPath();

}  // namespace cmn
