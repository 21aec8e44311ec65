#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/LogQueue.h"

using cmn::LogQueue;
using testing::ElementsAre;

namespace {

std::vector<std::string> Texts(const LogQueue& queue) {
    std::vector<std::string> texts;
    queue.forEach([&](const cmn::LogMessage& message) { texts.emplace_back(message.message); });
    return texts;
}

std::size_t SizeOf(const std::vector<std::string>& texts) {
    std::size_t size = 0;
    for (const auto& text : texts)
        size += text.size();
    return size;
}

// Where the texts lie.
std::vector<const char*> Places(const LogQueue& queue) {
    std::vector<const char*> places;
    queue.forEach([&](const cmn::LogMessage& message) { places.push_back(message.message.data()); });
    return places;
}

LogQueue QueueOf(const std::vector<std::string>& texts) {
    LogQueue queue;
    for (const std::string& text : texts) {
        queue.pushBack({LogLevel::Info, text, 7});
    }
    return queue;
}

TEST(LogQueueTest, GivesBackWhatWasPutInInItsOrder) {
    LogQueue queue;
    queue.pushBack({LogLevel::Error, "first", 3});
    queue.pushBack({LogLevel::Trace, "second", 4});
    std::vector<LogLevel> levels;
    std::vector<std::time_t> times;
    queue.forEach([&](const cmn::LogMessage& message) {
        levels.push_back(message.level);
        times.push_back(message.time);
    });
    EXPECT_THAT(Texts(queue), ElementsAre("first", "second"));
    EXPECT_THAT(levels, ElementsAre(LogLevel::Error, LogLevel::Trace));
    EXPECT_THAT(times, ElementsAre(3, 4));
}

TEST(LogQueueTest, KeepsTextsOfItsOwn) {
    LogQueue queue;
    std::string text = "mine";
    queue.pushBack({LogLevel::Info, text, 0});
    text = "gone";
    EXPECT_THAT(Texts(queue), ElementsAre("mine"));
}

TEST(LogQueueTest, TellsEmptyTextsAndTextsWithNULsApart) {
    const std::string nul("a\0b", 3);
    EXPECT_THAT(Texts(QueueOf({"", nul, "", "c"})), ElementsAre("", nul, "", "c"));
}

TEST(LogQueueTest, DropsTheOldestAndTakesOthersInTheirPlace) {
    LogQueue queue = QueueOf({"one", "two", "three"});
    queue.dropOldest(2);
    queue.pushFront({LogLevel::Info, "notice", 0});
    queue.pushBack({LogLevel::Info, "four", 0});
    EXPECT_THAT(Texts(queue), ElementsAre("notice", "three", "four"));
    EXPECT_EQ(queue.size(), 3U);
    queue.dropOldest(9);
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.textSize(), 0U);
}

TEST(LogQueueTest, KeepsTheOrderAcrossChunksWhateverIsDropped) {
    const std::size_t lines = 5'000;
    for (const std::size_t count : {std::size_t{1}, std::size_t{1'023}, std::size_t{1'024},
                                    std::size_t{1'025}, std::size_t{2'048}, std::size_t{4'999}}) {
        LogQueue queue;
        std::vector<std::string> expected;
        for (std::size_t i = 0; i < lines; ++i) {
            // Long lines, short ones and empty ones.
            const std::string text =
                i % 7 == 0 ? std::string(LogQueue::kChunkSize + 1, static_cast<char>('a' + i % 26))
                           : std::string(i % 50, 'x') + std::to_string(i);
            queue.pushBack({LogLevel::Info, i % 5 == 0 ? "" : text, 7});
            if (i >= count)
                expected.push_back(i % 5 == 0 ? "" : text);
        }
        queue.dropOldest(count);
        EXPECT_EQ(queue.size(), expected.size());
        EXPECT_EQ(queue.textSize(), SizeOf(expected));
        EXPECT_TRUE(Texts(queue) == expected) << count;
    }
}

TEST(LogQueueTest, NeverMovesALine) {
    LogQueue queue = QueueOf({"first", std::string(LogQueue::kChunkSize + 1, 'x')});
    const auto places = Places(queue);
    for (int i = 0; i < 5'000; ++i)
        queue.pushBack({LogLevel::Info, std::string(100, 'y'), 7});
    queue.pushFront({LogLevel::Info, "notice", 7});
    queue.append(QueueOf({"last"}));
    const auto later = Places(queue);
    EXPECT_THAT(std::vector<const char*>(later.begin() + 1, later.begin() + 3),
                testing::ElementsAreArray(places));
    queue.dropOldest(1);
    EXPECT_EQ(Places(queue).front(), places.front());
}

TEST(LogQueueTest, TakesOverTheLinesOfAnother) {
    LogQueue queue = QueueOf({"one"});
    LogQueue other = QueueOf({"two", "three"});
    queue.append(std::move(other));
    queue.pushBack({LogLevel::Info, "four", 7});
    EXPECT_THAT(Texts(queue), ElementsAre("one", "two", "three", "four"));
    EXPECT_EQ(queue.size(), 4U);
    EXPECT_EQ(queue.textSize(), 15U);
}

TEST(LogQueueTest, CountsWhatHasToGoToLeaveSoMuchText) {
    LogQueue queue = QueueOf({"aaaa", "", std::string(LogQueue::kChunkSize, 'x'), "bb", "c"});
    EXPECT_EQ(queue.countToLeave(LogQueue::kChunkSize + 7), 0U);
    EXPECT_EQ(queue.countToLeave(LogQueue::kChunkSize + 6), 1U);
    EXPECT_EQ(queue.countToLeave(LogQueue::kChunkSize + 3), 1U);
    EXPECT_EQ(queue.countToLeave(LogQueue::kChunkSize + 2), 3U);
    EXPECT_EQ(queue.countToLeave(2), 4U);
    EXPECT_EQ(queue.countToLeave(0), 4U) << "the newest line stays";
    EXPECT_EQ(LogQueue().countToLeave(0), 0U);
    queue.dropOldest(1);
    EXPECT_EQ(queue.countToLeave(3), 2U);
}

TEST(LogQueueTest, UsesItsMemoryAgain) {
    LogQueue queue;
    std::size_t capacity = 0;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 5'000; ++i)
            queue.pushBack({LogLevel::Info, std::string(100, 'y'), 7});
        queue.pushBack({LogLevel::Info, std::string(10 * LogQueue::kChunkSize, 'y'), 7});
        queue.pushFront({LogLevel::Info, "notice", 7});
        queue.clear();
        if (round == 0)
            capacity = queue.capacity();
        EXPECT_EQ(queue.capacity(), capacity);
    }
    EXPECT_LT(capacity, 12 * LogQueue::kChunkSize) << "the long line's is given back";
}

TEST(LogQueueTest, UsesTheMemoryOfDroppedLinesAgain) {
    LogQueue queue;
    const auto fill = [&] {
        for (int i = 0; i < 5'000; ++i)
            queue.pushBack({LogLevel::Info, std::string(100, 'y'), 7});
    };
    fill();
    const auto capacity = queue.capacity();
    queue.dropOldest(5'000);
    fill();
    EXPECT_EQ(queue.capacity(), capacity);
    queue.clear();
    queue.pushBack({LogLevel::Info, std::string(10 * LogQueue::kChunkSize, 'y'), 7});
    EXPECT_GT(queue.dropOldest(1).capacity(), 10 * LogQueue::kChunkSize);
    EXPECT_EQ(queue.capacity(), capacity);
}

TEST(LogQueueTest, KeepsItsMemoryWhenClearedAndGivesItBackWhenReleased) {
    LogQueue queue = QueueOf({std::string(10'000, 'x')});
    queue.clear();
    EXPECT_TRUE(queue.empty());
    EXPECT_GE(queue.capacity(), 10'000U);
    queue.release();
    EXPECT_LT(queue.capacity(), 100U);
}

}  // namespace
