#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "linux_bus/Lane.h"
#include "support/LogCapture.h"
#include "support/SystemThreads.h"
#include "support/WaitFor.h"

namespace {

using namespace std::chrono_literals;
using fake::NewThreads;
using fake::NoMoreThreads;
using fake::WaitFor;
using fake::WaitInHandler;

class LaneTest : public testing::Test {
 protected:
    ~LaneTest() override {
        release.set_value();
        lanes.clear();
    }

    cmn::bus::Lane& makeLane(std::size_t mostTasks) {
        return *lanes.emplace_back(std::make_unique<cmn::bus::Lane>(loop, mostTasks));
    }

    // Until the end of the test.
    void blockOn() {
        ++inside;
        released.wait();
    }
    void block(cmn::bus::Lane& lane, int tasks) {
        for (int i = 0; i < tasks; ++i) {
            lane.post([this] { blockOn(); });
        }
    }
    // The loop's own thread is none of them.
    std::size_t threadsOfLanes() const { return threads.count() - 1; }
    bool loopTurns() {
        std::promise<void> turned;
        loop.post([&] { turned.set_value(); });
        return turned.get_future().wait_for(20s) == std::future_status::ready;
    }

    fake::LogCapture log;  // its thread is none of the loop's
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    std::atomic<int> inside{0};
    const NewThreads threads{};
    cmn::bus::Loop loop;
    std::vector<std::unique_ptr<cmn::bus::Lane>> lanes;
};

TEST_F(LaneTest, HasAThreadForEachTaskThatFoundNoneIdleUpToItsMost) {
    auto& lane = makeLane(4);
    EXPECT_EQ(threadsOfLanes(), 1u);
    block(lane, 1);
    ASSERT_TRUE(WaitFor([&] { return inside == 1; }));
    EXPECT_EQ(threadsOfLanes(), 1u);
    block(lane, 2);
    ASSERT_TRUE(WaitFor([&] { return inside == 3; }));
    EXPECT_EQ(threadsOfLanes(), 3u);
    block(lane, 20);
    ASSERT_TRUE(WaitFor([&] { return inside == 4; }));
    EXPECT_TRUE(loopTurns());
    EXPECT_EQ(threadsOfLanes(), 4u);
    EXPECT_EQ(inside, 4);
}

TEST_F(LaneTest, AThreadThatIsIdleAgainServesTheNextTask) {
    auto& lane = makeLane(1000);
    // Its thread may not be idle yet when a task is known to have ended.
    int rounds = 0;
    bool servedByOneThere = false;
    while (!servedByOneThere && ++rounds <= 100) {
        const std::size_t before = threads.count();
        std::promise<void> ran;
        lane.post([&] { ran.set_value(); });
        ran.get_future().get();
        servedByOneThere = rounds > 1 && threads.count() == before;
    }
    EXPECT_TRUE(servedByOneThere);
}

TEST_F(LaneTest, ATimerFiresWhateverTheTasksDo) {
    auto& lane = makeLane(8);
    std::atomic<int> fired{0};
    lane.after(1ms, [&] { ++fired; });
    block(lane, 2);
    ASSERT_TRUE(WaitFor([&] { return inside == 2; }));
    lane.after(1ms, [&] { ++fired; });
    lane.after(2ms, [&] { blockOn(); });
    lane.after(3ms, [&] { blockOn(); });
    lane.after(20ms, [&] { ++fired; });
    EXPECT_TRUE(WaitFor([&] { return fired == 3 && inside == 4; }));
}

TEST_F(LaneTest, TimersFireInTheOrderOfTheirTimes) {
    std::vector<int> order;  // in the loop
    std::promise<void> last;
    const auto begin = cmn::bus::Loop::Clock::now();
    loop.at(begin + 30ms, [&] { last.set_value(); });
    loop.at(begin + 20ms, [&] { order.push_back(2); });
    loop.at(begin + 10ms, [&] { order.push_back(1); });
    loop.at(begin - 1h, [&] { order.push_back(0); });
    loop.at(begin + 20ms, [&] { order.push_back(3); });
    ASSERT_EQ(last.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_GE(cmn::bus::Loop::Clock::now(), begin + 30ms);
}

TEST_F(LaneTest, ATimerThatWasCancelledDoesNotFireAndHoldsUpNoOther) {
    std::vector<int> order;  // in the loop
    std::promise<void> last;
    const auto owned = std::make_shared<int>();
    const auto begin = cmn::bus::Loop::Clock::now();
    const auto first = loop.at(begin + 10ms, [&, owned] { order.push_back(1); });
    loop.at(begin + 20ms, [&] { order.push_back(2); });
    const auto third = loop.at(begin + 1h, [&, owned] { order.push_back(3); });
    loop.cancel(first);
    loop.cancel(first);
    loop.cancel(third);
    EXPECT_EQ(owned.use_count(), 1) << "what they owned is let go";
    loop.at(begin + 30ms, [&] { last.set_value(); });
    ASSERT_EQ(last.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_EQ(order, std::vector{2});
}

TEST_F(LaneTest, TasksThatFillOneLaneHoldUpNeitherTheLoopNorAnotherLane) {
    auto& full = makeLane(3);
    auto& free = makeLane(1);
    block(full, 20);
    ASSERT_TRUE(WaitFor([&] { return inside == 3; }));
    for (int i = 0; i < 100; ++i) {
        std::promise<void> ran;
        free.post([&] { ran.set_value(); });
        ASSERT_EQ(ran.get_future().wait_for(20s), std::future_status::ready);
        ASSERT_TRUE(loopTurns());
    }
    EXPECT_EQ(inside, 3);
}

TEST_F(LaneTest, WhatTheLoopHandsOverRunsBesideIt) {
    auto& lane = makeLane(4);
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        std::atomic<int> met{0};
        std::promise<void> done;
        loop.post([&] {
            for (int i = 0; i < 4; ++i) {
                lane.post([&] {
                    ++met;
                    EXPECT_TRUE(WaitInHandler([&] { return met >= 5; })) << "with the others and the loop";
                    if (++met == 9) {
                        done.set_value();
                    }
                });
            }
            loop.post([&] { ++met; });
        });
        ASSERT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
    }
}

// Nobody is out of patience.
class PatientLaneTest : public testing::Test {
 protected:
    ~PatientLaneTest() override { ::close(signal); }

    // In the loop, each time that somebody calls `tell`.
    void whenTold(cmn::bus::Loop::Task task) {
        loop.watch(signal, [this, task = std::move(task)] {
            eventfd_t count = 0;
            eventfd_read(signal, &count);
            task();
        });
    }
    void tell() const { eventfd_write(signal, 1); }

    const int signal = ::eventfd(0, EFD_NONBLOCK);
    cmn::bus::Loop loop{1h};
    cmn::bus::Lane lane{loop, 4};
};

TEST_F(PatientLaneTest, WhatTheLoopHandsOverAndIsOverSoonWakesNoOtherThread) {
    std::mutex mutex;  // guards what follows
    std::set<std::thread::id> threads;
    int ended = 0;
    std::promise<void> done;
    whenTold([&] {
        for (int i = 0; i < 4; ++i) {
            lane.post([&] {
                std::this_thread::sleep_for(20ms);  // long enough for another thread, were one woken
                const std::lock_guard lock(mutex);
                threads.insert(std::this_thread::get_id());
                if (++ended == 4) {
                    done.set_value();
                }
            });
        }
    });
    // A thread that is new, or has just ended something, looks around itself.
    std::size_t busy = 0;
    for (int round = 0; round < 20 && busy != 1; ++round) {
        tell();
        ASSERT_EQ(done.get_future().wait_for(20s), std::future_status::ready);
        const std::lock_guard lock(mutex);
        busy = threads.size();
        threads.clear();
        ended = 0;
        done = {};
    }
    EXPECT_EQ(busy, 1u);
}

TEST_F(PatientLaneTest, TheLoopListensAndTasksBeginWhileOneThatHasSaidSoWaits) {
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        std::atomic<int> told{0};
        std::promise<void> done;
        const auto watch = loop.watch(signal, [&] {
            eventfd_t count = 0;
            eventfd_read(signal, &count);
            if (++told == 1) {
                lane.post([&] {
                    tell();
                    cmn::bus::Loop::aboutToWait();
                    EXPECT_TRUE(WaitInHandler([&] { return told == 3; }))
                        << "for the loop and the other task";
                    done.set_value();
                });
                lane.post([&] { ++told; });
            }
        });
        tell();
        ASSERT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
        loop.unwatch(watch, signal);
    }
}

TEST_F(PatientLaneTest, TheLoopListensForATaskThatHasAskedItForSomething) {
    std::promise<void> done;
    std::atomic<int> told{0};
    whenTold([&] {
        if (++told == 1) {
            lane.post([&] {
                loop.post([this] { tell(); });
                EXPECT_TRUE(WaitInHandler([&] { return told == 2; }));
                done.set_value();
            });
        }
    });
    tell();
    ASSERT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
}

TEST_F(LaneTest, TheLoopListensWhileATaskThatItHandedOverTakesLong) {
    auto& lane = makeLane(1);
    std::promise<void> done;
    loop.after(0ns, [&] {
        lane.post([&] {
            ++inside;
            EXPECT_TRUE(WaitInHandler([&] { return inside == 2; }));
            done.set_value();
        });
        loop.after(10ms, [&] { ++inside; });
    });
    ASSERT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
}

TEST_F(LaneTest, AThreadThatCannotBeHadMakesTheTasksWaitForTheOthers) {
    auto& lane = makeLane(4);
    auto& other = makeLane(4);
    std::promise<void> end;
    std::atomic<int> done{0};
    lane.post([&, ended = end.get_future().share()] {
        ++inside;
        ended.wait();
    });
    ASSERT_TRUE(WaitFor([&] { return inside == 1; }));
    {
        const NoMoreThreads none;
        for (int i = 0; i < 3; ++i) {
            lane.post([&] { ++done; });
        }
        EXPECT_TRUE(WaitFor([&] {
            return log.count("Tasks have to make do with 3 threads: thread constructor failed") == 1;
        }));
        other.post([&] { ++inside; });
        EXPECT_TRUE(WaitFor([&] { return inside == 2; })) << "it has a thread of its own";
        EXPECT_EQ(done, 0);
        EXPECT_EQ(threadsOfLanes(), 2u);
        end.set_value();
        EXPECT_TRUE(WaitFor([&] { return done == 3; }));
    }
    EXPECT_EQ(log.count("Tasks have to make do"), 1u);
}

TEST_F(LaneTest, WithoutAFirstThreadThereIsNoLane) {
    const std::size_t before = threads.count();
    {
        const NoMoreThreads none;
        EXPECT_THROW(makeLane(4), std::system_error);
        EXPECT_THROW(cmn::bus::Loop{}, std::system_error);
    }
    EXPECT_EQ(threads.count(), before);
}

TEST_F(LaneTest, ALaneThatStopsWaitsForWhatRunsAndDropsWhatDoesNot) {
    auto& lane = makeLane(2);
    auto& other = makeLane(2);
    const auto owned = std::make_shared<int>();
    std::atomic<bool> ended{false};
    lane.post([&] {
        ++inside;
        EXPECT_TRUE(WaitInHandler([&] { return inside == 2; }));
        ended = true;
    });
    ASSERT_TRUE(WaitFor([&] { return inside == 1; }));
    lane.close();
    lane.post([owned] { ADD_FAILURE(); });
    lane.after(0ns, [owned] { ADD_FAILURE(); });
    EXPECT_EQ(owned.use_count(), 1);
    other.after(10ms, [&] { ++inside; });
    lane.stop();
    EXPECT_TRUE(ended);
}

TEST_F(LaneTest, ADelayedTaskGoesWithItsLane) {
    auto& lane = makeLane(2);
    const auto owned = std::make_shared<int>();
    lane.after(1h, [owned] {});
    EXPECT_EQ(owned.use_count(), 2);
    lane.stop();
    EXPECT_EQ(owned.use_count(), 1);
}

}  // namespace
