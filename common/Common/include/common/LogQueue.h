#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "common/log.h"

namespace cmn {

// One queued line.
struct LogMessage {
    LogLevel level;
    std::string_view message;  // no trailing newline
    std::time_t time;          // when it was handed in, seconds since 1970
};

// Lines in the order of their writing. Their texts lie behind one another in one buffer: a line costs its
// caller no memory of its own, and the writer reads straight on. Not thread-safe.
class LogQueue {
 public:
    bool empty() const { return entries_.empty(); }
    std::size_t size() const { return entries_.size(); }
    std::size_t textSize() const { return texts_.size(); }  // bytes
    std::size_t capacity() const;                           // bytes of memory held

    // Copy the text.
    void pushBack(const LogMessage& message);
    void pushFront(const LogMessage& message);  // as slow as the queue is long
    void dropOldest(std::size_t count);         // the same

    // Calls `visit` with each message, the oldest first.
    template <typename Visit>
    void forEach(Visit visit) const {
        const char* text = texts_.data();
        for (const Entry& entry : entries_) {
            visit(LogMessage{entry.level, {text, entry.size}, entry.time});
            text += entry.size;
        }
    }

    void clear();    // keeps its memory
    void release();  // gives its memory back, too

 private:
    struct Entry {
        std::time_t time;
        std::size_t size;
        LogLevel level;
    };
    std::vector<Entry> entries_;
    std::string texts_;
};

}  // namespace cmn
