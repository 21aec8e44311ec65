#include "common/LogQueue.h"

#include <algorithm>
#include <numeric>

namespace cmn {

std::size_t LogQueue::capacity() const {
    return entries_.capacity() * sizeof(Entry) + texts_.capacity();
}

void LogQueue::pushBack(const LogMessage& message) {
    texts_ += message.message;
    try {
        entries_.push_back({message.time, message.message.size(), message.level});
    } catch (...) {
        texts_.resize(texts_.size() - message.message.size());
        throw;
    }
}

void LogQueue::pushFront(const LogMessage& message) {
    entries_.insert(entries_.begin(), {message.time, message.message.size(), message.level});
    texts_.insert(0, message.message);
}

void LogQueue::dropOldest(std::size_t count) {
    const auto end = entries_.begin() + static_cast<std::ptrdiff_t>(std::min(count, entries_.size()));
    texts_.erase(0, std::accumulate(entries_.begin(), end, std::size_t{0},
                                    [](std::size_t sum, const Entry& entry) { return sum + entry.size; }));
    entries_.erase(entries_.begin(), end);
}

void LogQueue::clear() {
    entries_.clear();
    texts_.clear();
}

void LogQueue::release() {
    std::vector<Entry>().swap(entries_);
    std::string().swap(texts_);
}

}  // namespace cmn
