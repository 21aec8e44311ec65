#include "common/LogQueue.h"

#include <algorithm>
#include <utility>

namespace cmn {

namespace {

constexpr std::size_t kChunkLines = 1'024;

}  // namespace

LogQueue::Chunk::Chunk(std::size_t lineCount, std::size_t textSize) {
    // Filled once: else every thirtieth call would wait for the system to give it a page.
    lines.resize(lineCount);
    texts.resize(textSize);
    lines.clear();
    texts.clear();
}

bool LogQueue::Chunk::isOrdinary() const {
    return lines.capacity() >= kChunkLines;
}

void LogQueue::Chunk::clear() {
    lines.clear();
    texts.clear();
    begin = textBegin = 0;
}

bool LogQueue::Chunk::hasRoomFor(std::string_view text) const {
    return lines.size() < lines.capacity() && texts.capacity() - texts.size() >= text.size();
}

void LogQueue::Chunk::add(const LogMessage& message) {
    texts += message.message;
    lines.push_back({message.time, message.message.size(), message.level});
}

std::size_t LogQueue::Chunk::dropOldest() {
    const std::size_t text = lines[begin++].size;
    textBegin += text;
    return text;
}

LogQueue& LogQueue::operator=(LogQueue&& other) noexcept {
    LogQueue(std::move(other)).swap(*this);
    return *this;
}

void LogQueue::swap(LogQueue& other) noexcept {
    chunks_.swap(other.chunks_);
    spare_.swap(other.spare_);
    std::swap(size_, other.size_);
    std::swap(textSize_, other.textSize_);
}

std::size_t LogQueue::capacity() const {
    std::size_t bytes = 0;
    for (const auto* chunks : {&chunks_, &spare_}) {
        for (const Chunk& chunk : *chunks)
            bytes += chunk.lines.capacity() * sizeof(Line) + chunk.texts.capacity();
    }
    return bytes;
}

void LogQueue::pushBack(const LogMessage& message) {
    if (chunks_.empty() || !chunks_.back().hasRoomFor(message.message))
        addChunkFor(message.message);
    chunks_.back().add(message);
    ++size_;
    textSize_ += message.message.size();
}

void LogQueue::addChunkFor(std::string_view text) {
    if (text.size() > kChunkSize)
        chunks_.emplace_back(1, text.size());
    else if (spare_.empty())
        chunks_.emplace_back(kChunkLines, kChunkSize);
    else
        chunks_.splice(chunks_.end(), spare_, spare_.begin());
}

void LogQueue::pushFront(const LogMessage& message) {
    chunks_.emplace_front(1, message.message.size()).add(message);
    ++size_;
    textSize_ += message.message.size();
}

void LogQueue::append(LogQueue&& other) noexcept {
    chunks_.splice(chunks_.end(), other.chunks_);
    size_ += std::exchange(other.size_, 0);
    textSize_ += std::exchange(other.textSize_, 0);
}

std::size_t LogQueue::countToLeave(std::size_t textSize) const {
    std::size_t count = 0;
    std::size_t left = textSize_;
    for (const Chunk& chunk : chunks_) {
        if (left - chunk.textLeft() > textSize) {
            left -= chunk.textLeft();
            count += chunk.linesLeft();
            continue;
        }
        for (std::size_t i = chunk.begin; left > textSize; ++i, ++count)
            left -= chunk.lines[i].size;
        break;
    }
    return size_ == 0 ? 0 : std::min(count, size_ - 1);
}

LogQueue LogQueue::dropOldest(std::size_t count) {
    LogQueue dropped;
    count = std::min(count, size_);
    size_ -= count;
    while (count > 0 && count >= chunks_.front().linesLeft()) {
        count -= chunks_.front().linesLeft();
        textSize_ -= chunks_.front().textLeft();
        chunks_.front().clear();
        auto& to = chunks_.front().isOrdinary() ? spare_ : dropped.chunks_;
        to.splice(to.end(), chunks_, chunks_.begin());
    }
    for (; count > 0; --count)
        textSize_ -= chunks_.front().dropOldest();
    return dropped;
}

void LogQueue::clear() {
    chunks_.remove_if([](const Chunk& chunk) { return !chunk.isOrdinary(); });
    for (Chunk& chunk : chunks_)
        chunk.clear();
    spare_.splice(spare_.end(), chunks_);
    size_ = textSize_ = 0;
}

void LogQueue::release() {
    *this = LogQueue();
}

}  // namespace cmn
