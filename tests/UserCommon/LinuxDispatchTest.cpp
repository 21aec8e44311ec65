#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "linux_usercommon/LinuxDispatch.h"
#include "support/FakeXPCTransport.h"
#include "support/LogCapture.h"
#include "support/SystemThreads.h"
#include "support/WaitFor.h"
#include "usercommon/SerialQueue.h"
#include "usercommon/XPCClient.h"

namespace {

using namespace std::chrono_literals;
using cmn::QueuePriority;
using fake::WaitFor;
using testing::Each;
using Clock = std::chrono::steady_clock;

class LinuxDispatchTest : public testing::Test {
 protected:
    ~LinuxDispatchTest() override { dispatch->stop(); }

    // The tasks of one serial queue, in these lanes, run in their order and one at a time.
    void expectOrder(const std::function<cmn::Lane(int task)>& laneOf) const {
        const auto queue = dispatch->createSerialQueue();
        std::vector<int> order;  // guarded by the queue
        std::atomic<int> inside{0};
        std::atomic<int> overlaps{0};
        std::atomic<int> done{0};
        for (int i = 0; i < 1000; ++i) {
            queue->post(
                [&, i] {
                    overlaps += ++inside > 1 ? 1 : 0;
                    order.push_back(i);
                    --inside;
                    ++done;
                },
                laneOf(i));
        }
        ASSERT_TRUE(WaitFor([&] { return done == 1000; }));
        EXPECT_EQ(overlaps, 0);
        EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    }
    // Whether what is begun calls the function it is given.
    static bool runs(const std::function<void(std::function<void()> task)>& begin) {
        std::promise<void> ran;
        begin([&ran] { ran.set_value(); });
        return ran.get_future().wait_for(20s) == std::future_status::ready;
    }

    std::shared_ptr<cmn::LinuxDispatch> dispatch = std::make_shared<cmn::LinuxDispatch>();
};

TEST_F(LinuxDispatchTest, RunsATaskOnceOnAnotherThread) {
    for (const auto priority : {QueuePriority::normal, QueuePriority::high}) {
        std::atomic<int> runs{0};
        std::thread::id thread;
        std::promise<void> ran;
        dispatch->async(priority, [&] {
            ++runs;
            thread = std::this_thread::get_id();
            ran.set_value();
        });
        ran.get_future().get();
        EXPECT_EQ(runs, 1);
        EXPECT_NE(thread, std::this_thread::get_id());
    }
}

TEST_F(LinuxDispatchTest, RunsTasksOfEachQueueAtTheSameTime) {
    for (const auto priority : {QueuePriority::normal, QueuePriority::high}) {
        std::atomic<int> inside{0};
        std::atomic<int> done{0};
        for (int i = 0; i < 4; ++i) {
            dispatch->async(priority, [&] {
                ++inside;
                EXPECT_TRUE(WaitFor([&] { return inside == 4; })) << "four tasks run side by side";
                ++done;
            });
        }
        ASSERT_TRUE(WaitFor([&] { return done == 4; }));
    }
}

TEST_F(LinuxDispatchTest, TasksThatBlockOnOneQueueDoNotHoldUpTheOther) {
    const auto never = dispatch->createSemaphore(0);
    for (int i = 0; i < 64; ++i) {
        dispatch->async(QueuePriority::high, [&] { never->wait(20s); });
    }
    EXPECT_TRUE(runs([&](auto task) { dispatch->async(QueuePriority::normal, std::move(task)); }));
    dispatch->stop();
}

TEST_F(LinuxDispatchTest, RunsADelayedTaskNotBeforeItsTime) {
    const auto start = Clock::now();
    std::promise<Clock::time_point> ran;
    dispatch->after(30ms, QueuePriority::normal, [&] { ran.set_value(Clock::now()); });
    EXPECT_GE(ran.get_future().get() - start, 30ms);
}

TEST_F(LinuxDispatchTest, RunsMainTasksInTheirOrderOnTheMainThread) {
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) {
            dispatch->asyncMain([&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
            });
        }
    });
    ASSERT_TRUE(WaitFor([&] { return order.size() == 100; }));
    other.join();
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_THAT(threads, Each(std::this_thread::get_id()));
}

TEST_F(LinuxDispatchTest, AMainTaskMayQueueAnother) {
    bool done = false;
    dispatch->asyncMain([&] { dispatch->asyncMain([&] { done = true; }); });
    EXPECT_TRUE(WaitFor([&] { return done; }));
}

TEST_F(LinuxDispatchTest, MainTasksThatQueueOthersLetTheLoopServeWhatElseItHas) {
    const int ready = eventfd(1, EFD_CLOEXEC);
    ASSERT_GE(ready, 0);
    int tasks = 0;
    int tasksBefore = -1;  // of what the descriptor has been waiting for since before the first
    QSocketNotifier notifier(ready, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [&] {
        tasksBefore = tasks;
        notifier.setEnabled(false);
    });
    std::function<void()> task = [&] {
        if (++tasks < 100) {
            dispatch->asyncMain(task);
        }
    };
    dispatch->asyncMain(task);
    EXPECT_TRUE(WaitFor([&] { return tasks == 100 && tasksBefore >= 0; }));
    EXPECT_LE(tasksBefore, 10);
    close(ready);
}

TEST_F(LinuxDispatchTest, ATaskThatThrowsIsLoggedAndHarmsNobody) {
    fake::LogCapture log;
    dispatch->async(QueuePriority::normal, [] { throw std::runtime_error("clumsy task"); });
    dispatch->asyncMain([] { throw std::runtime_error("clumsy main task"); });
    dispatch->createSerialQueue()->post([] { throw std::runtime_error("clumsy serial task"); });
    EXPECT_TRUE(WaitFor([&] { return log.count("clumsy") == 3; }));
}

TEST_F(LinuxDispatchTest, ASemaphoreCounts) {
    const auto semaphore = dispatch->createSemaphore(2);
    EXPECT_TRUE(semaphore->wait(0ns));
    EXPECT_TRUE(semaphore->wait(-1ns)) << "a deadline in the past takes what is there";
    EXPECT_FALSE(semaphore->wait(-1ns));
    EXPECT_FALSE(semaphore->wait(0ns));
    semaphore->signal();
    EXPECT_TRUE(semaphore->wait(20s));
}

TEST_F(LinuxDispatchTest, ASemaphoreWaitsAsLongAsItIsTold) {
    const auto semaphore = dispatch->createSemaphore(0);
    const auto start = Clock::now();
    EXPECT_FALSE(semaphore->wait(20ms));
    EXPECT_GE(Clock::now() - start, 20ms);
}

TEST_F(LinuxDispatchTest, ASignalWakesAWaiter) {
    const auto semaphore = dispatch->createSemaphore(0);
    dispatch->after(5ms, QueuePriority::normal, [semaphore] { semaphore->signal(); });
    EXPECT_TRUE(semaphore->wait(std::chrono::nanoseconds::max()));
}

TEST_F(LinuxDispatchTest, StopWakesWaitersAndDropsWhatHasNotRun) {
    const auto semaphore = dispatch->createSemaphore(0);
    const auto owned = std::make_shared<int>(1);
    std::atomic<bool> woken{false};
    std::promise<void> inside;
    dispatch->async(QueuePriority::high, [&] {
        inside.set_value();
        EXPECT_FALSE(semaphore->wait(1h));
        woken = true;
    });
    inside.get_future().get();
    dispatch->after(1h, QueuePriority::normal, [owned] { ADD_FAILURE(); });
    dispatch->asyncMain([owned] { ADD_FAILURE(); });
    const auto queue = dispatch->createSerialQueue();
    const auto start = Clock::now();
    dispatch->stop();
    EXPECT_LT(Clock::now() - start, 10s);
    EXPECT_TRUE(woken);
    dispatch->async(QueuePriority::normal, [owned] { ADD_FAILURE(); });
    dispatch->after(0s, QueuePriority::high, [owned] { ADD_FAILURE(); });
    dispatch->asyncMain([owned] { ADD_FAILURE(); });
    queue->post([owned] { ADD_FAILURE(); });
    EXPECT_EQ(owned.use_count(), 1);
}

TEST_F(LinuxDispatchTest, StopCutsTheRingOfAClientThatWaitsToReconnect) {
    const auto transport = std::make_shared<fake::XPCTransport>();
    auto client = std::make_shared<cmn::XPCClient>(dispatch, transport, "com.example.Service", true);
    client->reconnect(1);
    const std::weak_ptr<cmn::XPCClient> watched = client;
    client.reset();
    dispatch->stop();
    EXPECT_TRUE(watched.expired());
}

TEST_F(LinuxDispatchTest, MayEndOnOneOfItsOwnThreads) {
    for (int i = 0; i < 20; ++i) {
        auto own = std::make_shared<cmn::LinuxDispatch>();
        std::promise<void> ended;
        own->async(QueuePriority::normal, [kept = own, &ended]() mutable {
            std::this_thread::sleep_for(1ms);
            kept.reset();
            ended.set_value();
        });
        own.reset();
        EXPECT_EQ(ended.get_future().wait_for(20s), std::future_status::ready);
    }
}

TEST_F(LinuxDispatchTest, OverlappingReconnectsOfAClientRunOneAfterTheOther) {
    class SlowClient : public cmn::XPCClient {
     public:
        using XPCClient::XPCClient;
        void willResumeConnection(const std::shared_ptr<cmn::XPCConnection>&) override {
            overlaps += ++inside > 1 ? 1 : 0;
            std::this_thread::sleep_for(5ms);
            --inside;
            ++connects;
        }
        std::atomic<int> inside{0}, overlaps{0}, connects{0};
    };
    // Delays fall away, so that all reconnects come due at once.
    class Impatient : public cmn::Dispatch {
     public:
        explicit Impatient(std::shared_ptr<cmn::Dispatch> real) : real_(std::move(real)) {}
        void async(QueuePriority priority, Task task) override { real_->async(priority, std::move(task)); }
        void after(std::chrono::nanoseconds, QueuePriority priority, Task task) override {
            real_->async(priority, std::move(task));
        }
        void asyncMain(Task task) override { real_->asyncMain(std::move(task)); }
        std::shared_ptr<cmn::Semaphore> createSemaphore(long count) override {
            return real_->createSemaphore(count);
        }

     private:
        const std::shared_ptr<cmn::Dispatch> real_;
    };
    const auto transport = std::make_shared<fake::XPCTransport>();
    const auto client = std::make_shared<SlowClient>(std::make_shared<Impatient>(dispatch), transport,
                                                     "com.example.Service", true);
    for (int i = 0; i < 8; ++i) {
        client->reconnect(i);
    }
    ASSERT_TRUE(WaitFor([&] { return client->connects == 8; }));
    EXPECT_EQ(client->overlaps, 0);
}

TEST_F(LinuxDispatchTest, ASerialQueueKeepsTheOrderAndNeverRunsTwoTasksAtOnce) {
    expectOrder([](int) { return cmn::Lane::quick; });
}

TEST_F(LinuxDispatchTest, SerialQueuesRunSideBySideAndShareTheThreads) {
    // More busy queues than threads: each gets its turn.
    std::vector<std::shared_ptr<cmn::SerialQueue>> queues;
    std::atomic<int> done{0};
    for (int i = 0; i < 100; ++i) {
        queues.push_back(dispatch->createSerialQueue());
        for (int task = 0; task < 20; ++task) {
            queues.back()->post([&] { ++done; });
        }
    }
    EXPECT_TRUE(WaitFor([&] { return done == 2000; }));
}

TEST_F(LinuxDispatchTest, TasksThatWaitForAReplyDoNotKeepItFromThem) {
    for (const int tasks : {4, 8, 64}) {
        std::atomic<int> answered{0};
        std::atomic<int> ended{0};
        for (int i = 0; i < tasks; ++i) {
            dispatch->async(i % 8 == 7 ? QueuePriority::high : QueuePriority::normal, [&] {
                const auto reply = dispatch->createSemaphore(0);
                dispatch->createSerialQueue()->post([reply] { reply->signal(); });
                answered += reply->wait(10s) ? 1 : 0;
                ++ended;
            });
        }
        ASSERT_TRUE(WaitFor([&] { return ended == tasks; }, 60s));
        EXPECT_EQ(answered, tasks);
    }
}

TEST_F(LinuxDispatchTest, SlowTasksHoldUpNoQuickOnes) {
    constexpr int kSlow = 3;
    const auto own = std::make_shared<cmn::LinuxDispatch>(kSlow);
    const auto release = own->createSemaphore(0);
    std::atomic<int> slow{0};
    std::vector<std::shared_ptr<cmn::SerialQueue>> queues;
    for (int i = 0; i < 4 * kSlow; ++i) {
        queues.push_back(own->createSerialQueue());
        queues.back()->post(
            [&] {
                ++slow;
                release->wait(1h);
            },
            cmn::Lane::slow);
    }
    EXPECT_TRUE(WaitFor([&] { return slow == kSlow; }));
    std::atomic<int> done{0};
    for (int i = 0; i < 100; ++i) {
        own->createSerialQueue()->post([&] { ++done; });
    }
    own->async(QueuePriority::normal, [&] { ++done; });
    own->async(QueuePriority::high, [&] { ++done; });
    EXPECT_TRUE(WaitFor([&] { return done == 102; }));
    EXPECT_EQ(slow, kSlow) << "as many at the same time as the service wants";
    queues.back()->post([&] { ++done; });
    release->signal();
    EXPECT_TRUE(WaitFor([&] { return slow == kSlow + 1; })) << "the next has its turn";
    EXPECT_EQ(done, 102) << "behind its queue's slow task a quick one waits";
    own->stop();
}

TEST_F(LinuxDispatchTest, UserTasksHoldUpNoSlowOnes) {
    const auto release = dispatch->createSemaphore(0);
    for (int i = 0; i < 64; ++i) {
        dispatch->async(i % 2 == 0 ? QueuePriority::high : QueuePriority::normal, [&] { release->wait(1h); });
    }
    EXPECT_TRUE(
        runs([&](auto task) { dispatch->createSerialQueue()->post(std::move(task), cmn::Lane::slow); }));
    dispatch->stop();
}

TEST_F(LinuxDispatchTest, ASerialQueueKeepsItsOrderAcrossTheLanes) {
    expectOrder([](int task) { return task % 3 == 0 ? cmn::Lane::slow : cmn::Lane::quick; });
}

TEST_F(LinuxDispatchTest, StopDropsWhatWaitsBehindATaskOfEitherLane) {
    for (const auto lane : {cmn::Lane::quick, cmn::Lane::slow}) {
        const auto own = std::make_shared<cmn::LinuxDispatch>();
        const auto queue = own->createSerialQueue();
        const auto owned = std::make_shared<int>(1);
        const auto never = own->createSemaphore(0);
        std::promise<void> inside;
        queue->post(
            [&] {
                inside.set_value();
                never->wait(1h);
            },
            lane);
        for (const auto waiting : {cmn::Lane::quick, cmn::Lane::slow, cmn::Lane::quick}) {
            queue->post([owned, queue] { ADD_FAILURE(); }, waiting);
        }
        inside.get_future().get();
        own->stop();
        EXPECT_EQ(owned.use_count(), 1);
    }
}

TEST_F(LinuxDispatchTest, ADispatchInTheLoopOfOthersLeavesItToThem) {
    const auto loop = std::make_shared<cmn::bus::Loop>();
    const auto own = std::make_shared<cmn::LinuxDispatch>(1, loop);
    EXPECT_EQ(own->loop(), loop);
    EXPECT_TRUE(runs([&](auto task) { own->createSerialQueue()->post(std::move(task)); }));
    own->stop();
    EXPECT_TRUE(runs([&](auto task) { loop->post(std::move(task)); }));
}

TEST_F(LinuxDispatchTest, AnIdleOneHasAThreadOfEachKind) {
    const fake::NewThreads threads;
    {
        const fake::NoMoreThreads none;
        EXPECT_THROW(cmn::LinuxDispatch{}, std::system_error);
    }
    EXPECT_EQ(threads.count(), 0u);
    const cmn::LinuxDispatch own(1000);
    EXPECT_EQ(threads.count(), 5u) << "of the loop, of each priority, of each lane";
}

TEST_F(LinuxDispatchTest, ASerialQueueThatIsDroppedStillRunsItsTasks) {
    std::atomic<int> done{0};
    for (int i = 0; i < 10; ++i) {
        const auto queue = dispatch->createSerialQueue();
        queue->post([&] { ++done; });
        queue->post([&] { ++done; });
    }
    EXPECT_TRUE(WaitFor([&] { return done == 20; }));
}

}  // namespace
