#pragma once

#include <cstddef>
#include <ctime>
#include <list>
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

// Lines in the order of their writing. Their texts lie behind one another in chunks: a line costs its caller
// no memory of its own, the writer reads straight on, and a line that was put in is never moved, however many
// follow. Not thread-safe.
class LogQueue {
 public:
    // Bytes of text in a chunk; a longer line has a chunk for itself.
    static constexpr std::size_t kChunkSize = 65'536;

    LogQueue() = default;
    LogQueue(LogQueue&& other) noexcept { swap(other); }
    LogQueue& operator=(LogQueue&& other) noexcept;
    LogQueue(const LogQueue&) = delete;
    LogQueue& operator=(const LogQueue&) = delete;
    void swap(LogQueue& other) noexcept;

    bool empty() const { return size_ == 0; }
    std::size_t size() const { return size_; }
    std::size_t textSize() const { return textSize_; }  // bytes
    std::size_t capacity() const;                       // bytes of memory held

    // Copy the text.
    void pushBack(const LogMessage& message);
    void pushFront(const LogMessage& message);
    // Takes over another queue's lines, behind its own.
    void append(LogQueue&& other) noexcept;

    // How many of the oldest lines have to go to leave no more text than that; never the newest line.
    std::size_t countToLeave(std::size_t textSize) const;
    // Keeps the memory, too; that of long lines goes to what it returns.
    LogQueue dropOldest(std::size_t count);

    // Calls `visit` with each message, the oldest first.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (const Chunk& chunk : chunks_) {
            const char* text = chunk.texts.data() + chunk.textBegin;
            for (std::size_t i = chunk.begin; i < chunk.lines.size(); ++i) {
                const Line& line = chunk.lines[i];
                visit(LogMessage{line.level, {text, line.size}, line.time});
                text += line.size;
            }
        }
    }

    void clear();    // keeps its memory, not that of long lines
    void release();  // gives its memory back, too

 private:
    struct Line {
        std::time_t time;
        std::size_t size;
        LogLevel level;
    };
    // Neither of the two grows beyond the room it was made with.
    struct Chunk {
        Chunk(std::size_t lineCount, std::size_t textSize);
        bool isOrdinary() const;  // not made for one line
        void clear();
        bool hasRoomFor(std::string_view text) const;
        void add(const LogMessage& message);
        std::size_t dropOldest();  // returns the size of its text
        std::size_t linesLeft() const { return lines.size() - begin; }
        std::size_t textLeft() const { return texts.size() - textBegin; }

        std::vector<Line> lines;
        std::string texts;
        std::size_t begin = 0;      // the first line that has not been dropped
        std::size_t textBegin = 0;  // its text
    };
    void addChunkFor(std::string_view text);

    std::list<Chunk> chunks_;
    std::list<Chunk> spare_;  // empty, of the ordinary size
    std::size_t size_ = 0;
    std::size_t textSize_ = 0;
};

}  // namespace cmn
