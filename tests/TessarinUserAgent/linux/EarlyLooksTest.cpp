#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "accessibility/EarlyLooks.h"
#include "support/WaitFor.h"

using useragent::EarlyLooks;
using namespace std::chrono_literals;

namespace {

class EarlyLooksTest : public testing::Test {
 protected:
    // Everything that is due has begun when this returns.
    void settle() {
        std::promise<void> done;
        loop->after(1ms, [&] { done.set_value(); });
        done.get_future().wait();
    }

    std::atomic<int> begun{0};
    std::shared_ptr<cmn::bus::Loop> loop = std::make_shared<cmn::bus::Loop>();
    std::shared_ptr<EarlyLooks> looks = std::make_shared<EarlyLooks>(loop, [this] { ++begun; });
};

TEST_F(EarlyLooksTest, OneCycleStandsForAllThatAreAskedForBeforeItBegins) {
    std::promise<void> gate;
    loop->post([opened = gate.get_future().share()] { opened.wait(); });
    for (int i = 0; i < 10; ++i) {
        looks->ask();
    }
    gate.set_value();
    settle();
    EXPECT_EQ(begun, 1);
    looks->ask();
    settle();
    EXPECT_EQ(begun, 2);
}

TEST_F(EarlyLooksTest, OneThatIsAskedForSoonerDoesNotWaitForALaterOne) {
    looks->ask(1h);
    looks->ask();
    EXPECT_TRUE(fake::WaitInHandler([&] { return begun == 1; }));
}

TEST_F(EarlyLooksTest, AProgramThatAsksWithoutEndHasSpentWhatItMayAtOnce) {
    for (int i = 0; i < 1000; ++i) {
        looks->ask();
        settle();
    }
    EXPECT_GE(begun, 20);
    EXPECT_LT(begun, 200) << "two a second after that, and a thousand settle within a minute";
}

TEST_F(EarlyLooksTest, NothingBeginsAfterItsEnd) {
    looks->ask(5ms);
    looks.reset();
    std::promise<void> later;
    loop->after(20ms, [&] { later.set_value(); });
    later.get_future().wait();
    EXPECT_EQ(begun, 0);
}

}  // namespace
