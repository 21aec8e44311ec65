#import <Foundation/Foundation.h>
#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#import "RunLoop.h"
#import "macos_usercommon/MacDispatch.h"
#include "support/LogCapture.h"
#include "support/Recorder.h"

namespace {

using namespace std::chrono_literals;
using cmn::QueuePriority;
using fake::RunUntil;
using testing::ElementsAre;

class MacDispatchTest : public testing::Test {
 protected:
    const std::shared_ptr<cmn::MacDispatch> dispatch = std::make_shared<cmn::MacDispatch>();
    const fake::Recorder<int> events;
    fake::LogCapture log;
};

TEST_F(MacDispatchTest, TasksRunOnAnotherThread) {
    for (const auto priority : {QueuePriority::normal, QueuePriority::high}) {
        const auto thread = std::make_shared<std::atomic<std::thread::id>>();
        dispatch->async(priority, [thread] { *thread = std::this_thread::get_id(); });
        EXPECT_TRUE(RunUntil([&] { return thread->load() != std::thread::id(); }));
        EXPECT_NE(thread->load(), std::this_thread::get_id());
    }
}

TEST_F(MacDispatchTest, TasksOfTheMainThreadRunInTheirOrderAndNotAtOnce) {
    for (int number = 0; number < 3; ++number) {
        dispatch->asyncMain([events = events, number] { events.add(pthread_main_np() != 0 ? number : -1); });
    }
    EXPECT_EQ(events.count(), 0U);
    EXPECT_TRUE(RunUntil([&] { return events.count() == 3; }));
    EXPECT_THAT(events.all(), ElementsAre(0, 1, 2));
}

TEST_F(MacDispatchTest, ADelayIsNotShorterAndNotSixtyTimesAsLong) {
    const auto begin = std::chrono::steady_clock::now();
    dispatch->after(500ms, QueuePriority::normal, [events = events] { events.add(1); });
    EXPECT_TRUE(RunUntil([&] { return events.count() == 1; }, 20s));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 500ms);
}

TEST_F(MacDispatchTest, ASemaphoreIsWaitedForUntilTheTimeIsOver) {
    const auto semaphore = dispatch->createSemaphore(1);
    EXPECT_TRUE(semaphore->wait(0ns));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(semaphore->wait(100ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
    dispatch->async(QueuePriority::normal, [semaphore] { semaphore->signal(); });
    EXPECT_TRUE(semaphore->wait(20s));
}

TEST_F(MacDispatchTest, ATaskThatThrowsEndsAloneAndIsLogged) {
    dispatch->async(QueuePriority::normal, [] { throw std::runtime_error("of the test"); });
    EXPECT_TRUE(RunUntil([&] { return log.contains("of the test"); }));
}

}  // namespace
