#include <gtest/gtest.h>

#include "common/ScopedAction.h"

namespace {

TEST(ScopedActionTest, RunsWhenTheScopeEnds) {
    int runs = 0;
    {
        const cmn::ScopedAction action([&] { ++runs; });
        EXPECT_EQ(runs, 0);
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopedActionTest, RunsWhenAnExceptionLeavesTheScope) {
    int runs = 0;
    try {
        const cmn::ScopedAction action([&] { ++runs; });
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopedActionTest, DoesNothingOnceDisarmed) {
    int runs = 0;
    {
        cmn::ScopedAction action([&] { ++runs; });
        action.disarm();
    }
    EXPECT_EQ(runs, 0);
}

}  // namespace
