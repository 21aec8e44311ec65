#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
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

TEST(LogQueueTest, KeepsItsMemoryWhenClearedAndGivesItBackWhenReleased) {
    LogQueue queue = QueueOf({std::string(10'000, 'x')});
    queue.clear();
    EXPECT_TRUE(queue.empty());
    EXPECT_GE(queue.capacity(), 10'000U);
    queue.release();
    EXPECT_LT(queue.capacity(), 100U);
}

}  // namespace
