#include <gtest/gtest.h>

#include "support/FakeDispatch.h"

namespace {

using namespace std::chrono_literals;
using cmn::QueuePriority;

class FakeDispatchTest : public testing::Test {
 protected:
    void TearDown() override { dispatch.close(); }

    void occupy(QueuePriority priority, int threads) {
        for (int i = 0; i < threads; ++i) {
            dispatch.async(priority, [this] { EXPECT_TRUE(released->wait(1h)); });
        }
        dispatch.runUntilIdle();
    }

    fake::Dispatch dispatch{2};
    std::shared_ptr<cmn::Semaphore> released = dispatch.createSemaphore(0);
    bool ran = false;
};

TEST_F(FakeDispatchTest, ATaskRunsWhenItsQueueHasAThreadAgain) {
    occupy(QueuePriority::normal, 2);
    dispatch.after(1s, QueuePriority::normal, [this] { ran = true; });
    dispatch.advance(2s);
    EXPECT_FALSE(ran);
    released->signal();
    dispatch.runUntilIdle();
    EXPECT_TRUE(ran);
    EXPECT_EQ(dispatch.now(), 2s);
    released->signal();
    dispatch.runUntilIdle();
}

TEST_F(FakeDispatchTest, ATaskThatWaitsLeavesTheOtherThreadsOfItsQueue) {
    occupy(QueuePriority::high, 1);
    dispatch.async(QueuePriority::high, [this] { ran = true; });
    dispatch.runUntilIdle();
    EXPECT_TRUE(ran);
    released->signal();
    dispatch.runUntilIdle();
}

TEST_F(FakeDispatchTest, AFullQueueHoldsUpNeitherAnotherOneNorTheTransport) {
    occupy(QueuePriority::normal, 3);
    EXPECT_EQ(dispatch.pending(), 1u);
    dispatch.async(QueuePriority::high, [this] { released->signal(); });
    dispatch.asyncMain([this] { released->signal(); });
    dispatch.deliver(1ms, [this] { released->signal(); });
    dispatch.advance(1ms);
    EXPECT_EQ(dispatch.pending() + dispatch.waiting(), 0u);
}

TEST_F(FakeDispatchTest, AMainTaskThatWaitsIsTheOnlyOne) {
    dispatch.asyncMain([this] { EXPECT_FALSE(released->wait(1s)); });
    dispatch.asyncMain([this] { ran = true; });
    dispatch.advance(1s - 1ns);
    EXPECT_FALSE(ran);
    dispatch.advance(1ns);
    EXPECT_TRUE(ran);
}

}  // namespace
