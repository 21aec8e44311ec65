#include <gtest/gtest.h>

#include "accessibility/ValueFollower.h"

using useragent::ValueFollower;
using Retry = ValueFollower::Retry;

namespace {

TEST(ValueFollower, ReadsAtTheFirstSignalAndTellsTheText) {
    ValueFollower follower;
    EXPECT_TRUE(follower.changed());
    EXPECT_TRUE(follower.read("a"));
}

TEST(ValueFollower, CoversSignalsBeforeTheAnswerWithOneRead) {
    ValueFollower follower;
    EXPECT_TRUE(follower.changed());
    EXPECT_FALSE(follower.changed());
    EXPECT_FALSE(follower.changed());
    EXPECT_TRUE(follower.read("a"));
    EXPECT_TRUE(follower.changed());
}

TEST(ValueFollower, DoesNotTellTheSameTextAgain) {
    ValueFollower follower;
    follower.changed();
    follower.read("a");
    EXPECT_TRUE(follower.changed());
    EXPECT_FALSE(follower.read("a"));
    EXPECT_TRUE(follower.changed());
    EXPECT_TRUE(follower.read("b"));
    EXPECT_TRUE(follower.changed());
    EXPECT_TRUE(follower.read("a"));
}

TEST(ValueFollower, TellsAnEmptyTextFirst) {
    ValueFollower follower;
    follower.changed();
    EXPECT_TRUE(follower.read(""));
}

TEST(ValueFollower, AsksAgainForWhatWasNotAnswered) {
    ValueFollower follower;
    follower.changed();
    follower.unanswered();
    EXPECT_EQ(follower.recovered(), Retry::now);
    EXPECT_TRUE(follower.changed());
    EXPECT_TRUE(follower.read("a"));
    EXPECT_EQ(follower.recovered(), Retry::none);
}

TEST(ValueFollower, DoesNotPressWhoeverLeavesTheSecondReadUnansweredToo) {
    ValueFollower follower;
    follower.changed();
    follower.unanswered();
    EXPECT_EQ(follower.recovered(), Retry::now);
    follower.changed();
    follower.unanswered();
    EXPECT_EQ(follower.recovered(), Retry::later);
    follower.changed();
    follower.unanswered();
    EXPECT_EQ(follower.recovered(), Retry::later);
    follower.changed();
    follower.read("a");
    follower.changed();
    follower.unanswered();
    EXPECT_EQ(follower.recovered(), Retry::now);
}

TEST(ValueFollower, NeedsNothingWhenNothingIsMissing) {
    ValueFollower follower;
    EXPECT_EQ(follower.recovered(), Retry::none);
    follower.changed();
    EXPECT_EQ(follower.recovered(), Retry::none) << "a read is running";
    follower.failed();
    EXPECT_EQ(follower.recovered(), Retry::none) << "the field is gone";
    EXPECT_TRUE(follower.changed()) << "a later signal is read all the same";
}

TEST(ValueFollower, SignalAfterAnUnansweredReadIsRead) {
    ValueFollower follower;
    follower.changed();
    follower.unanswered();
    EXPECT_TRUE(follower.changed());
    EXPECT_TRUE(follower.read("a"));
}

}  // namespace
