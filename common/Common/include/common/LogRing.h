#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "common/LogOutput.h"

namespace cmn {

// A ring of size-limited files "{stem}_{index}.{extension}", one of which is being written. For one thread at
// a time, but for what is said to be for any.
class LogRing {
 public:
    // The output outlives this object.
    explicit LogRing(LogOutput& output);

    void setMaxSize(std::uint64_t bytes);
    void setFileCount(std::uint32_t count);           // ignored when 0
    void setExtension(const std::string& extension);  // ignored when empty
    void setStem(const std::string& stem);            // ignored when empty or not writable

    // Goes on to the next file when this one is above the limit, then appends lines. The text has a newline
    // in front of them, which ends a line that was left unfinished. How many bytes of the lines the file
    // took.
    std::size_t write(std::string_view newlineAndLines);

    // Any thread: full name of the file being written, and the same with another stem.
    std::string name() const;
    std::string name(const std::string& stem) const;

    // Any thread, also in a signal handler: appends to the file being written, past everything else. How many
    // bytes it took.
    std::size_t appendNow(std::string_view text) noexcept;

 private:
    std::string nameOf(std::uint32_t index) const;
    void setCurrent(std::uint32_t index);
    void refreshCurrent();
    void rotate();

    LogOutput& output_;
    std::uint64_t maxSize_ = 15'728'640;
    std::uint32_t fileCount_ = 2;
    std::string tornFile_;  // whose last line was left unfinished

    mutable std::mutex nameMutex_;  // held while the three below change
    std::string stem_;
    std::string extension_ = "log";
    std::uint32_t current_ = 0;

    std::set<std::string> names_;  // of all files so far: who appends past everything holds no lock
    std::atomic<const char*> currentName_{nullptr};  // one of them
};

}  // namespace cmn
