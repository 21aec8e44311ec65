#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <system_error>

#include "linux_usercommon/LinuxDispatch.h"
#include "linux_usercommon/TaskPool.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

namespace {

using namespace std::chrono_literals;
using fake::WaitFor;

// Counts the threads that this process has got since it was made. The system still shows for a moment one
// that ended before.
class NewThreads {
 public:
    std::size_t count() const {
        std::size_t added = 0;
        for (const std::string& thread : All()) {
            added += before_.count(thread) == 0 ? 1 : 0;
        }
        return added;
    }

 private:
    static std::set<std::string> All() {
        std::set<std::string> threads;
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            threads.insert(thread.path().filename());
        }
        return threads;
    }

    const std::set<std::string> before_ = All();
};

// While it lives, the system gives no threads: their stacks would not fit into memory.
class NoMoreThreads {
 public:
    NoMoreThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 50U);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        pthread_attr_destroy(&huge);
    }
    ~NoMoreThreads() {
        EXPECT_EQ(pthread_setattr_default_np(&before_), 0);
        pthread_attr_destroy(&before_);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
    pthread_attr_t before_{};
};

class TaskPoolTest : public testing::Test {
 protected:
    ~TaskPoolTest() override {
        if (pool) {
            release.set_value();
            pool->stop();
        }
    }

    void makePool(std::size_t mostThreads) { pool = std::make_shared<cmn::TaskPool>(mostThreads); }

    // Until the end of the test.
    void blockOn() {
        ++inside;
        released.wait();
    }
    void block(int tasks) {
        for (int i = 0; i < tasks; ++i) {
            pool->post([this] { blockOn(); });
        }
    }

    fake::LogCapture log;  // its thread is none of the pool's
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    std::atomic<int> inside{0};
    const NewThreads threads{};
    std::shared_ptr<cmn::TaskPool> pool;
};

TEST_F(TaskPoolTest, HasAThreadForEachTaskThatFoundNoneIdleUpToItsMost) {
    makePool(4);
    EXPECT_EQ(threads.count(), 1u);
    block(1);
    ASSERT_TRUE(WaitFor([&] { return inside == 1; }));
    EXPECT_EQ(threads.count(), 1u);
    block(2);
    ASSERT_TRUE(WaitFor([&] { return inside == 3; }));
    EXPECT_EQ(threads.count(), 3u);
    block(20);
    ASSERT_TRUE(WaitFor([&] { return inside == 4; }));
    EXPECT_EQ(threads.count(), 4u);
}

TEST_F(TaskPoolTest, AThreadThatIsIdleAgainServesTheNextTask) {
    makePool(1000);
    // Its thread may not be idle yet when a task is known to have ended.
    int rounds = 0;
    bool servedByOneThere = false;
    while (!servedByOneThere && ++rounds <= 100) {
        const std::size_t before = threads.count();
        std::promise<void> ran;
        pool->post([&] { ran.set_value(); });
        ran.get_future().get();
        servedByOneThere = rounds > 1 && threads.count() == before;
    }
    EXPECT_TRUE(servedByOneThere);
}

TEST_F(TaskPoolTest, ATimerFiresWhateverTheTasksDo) {
    makePool(8);
    std::atomic<int> fired{0};
    pool->after(1ms, [&] { ++fired; });
    block(2);
    ASSERT_TRUE(WaitFor([&] { return inside == 2; }));
    pool->after(1ms, [&] { ++fired; });
    pool->after(2ms, [&] { blockOn(); });
    pool->after(3ms, [&] { blockOn(); });
    pool->after(20ms, [&] { ++fired; });
    EXPECT_TRUE(WaitFor([&] { return fired == 3 && inside == 4; }));
}

TEST_F(TaskPoolTest, ATimerFiresInAPoolThatRanNothingYet) {
    makePool(4);
    std::promise<void> fired;
    pool->after(1ms, [&] { fired.set_value(); });
    EXPECT_EQ(fired.get_future().wait_for(20s), std::future_status::ready);
}

TEST_F(TaskPoolTest, AThreadThatCannotBeHadMakesTheTasksWaitForTheOthers) {
    makePool(4);
    block(1);
    std::atomic<int> done{0};
    {
        const NoMoreThreads none;
        for (int i = 0; i < 3; ++i) {
            pool->post([&] { ++done; });
        }
        EXPECT_EQ(threads.count(), 1u);
        EXPECT_EQ(log.count("Tasks have to make do with 1 threads: thread constructor failed"), 1u);
    }
    pool->post([&] { ++done; });
    EXPECT_TRUE(WaitFor([&] { return done == 4; }));
}

TEST_F(TaskPoolTest, WithoutAFirstThreadThereIsNoPool) {
    {
        const NoMoreThreads none;
        EXPECT_THROW(cmn::TaskPool(4), std::system_error);
        EXPECT_THROW(cmn::LinuxDispatch{}, std::system_error);
    }
    EXPECT_EQ(threads.count(), 0u);
}

TEST_F(TaskPoolTest, AnIdleDispatchHasAThreadOfEachKind) {
    const cmn::LinuxDispatch dispatch(1000);
    EXPECT_EQ(threads.count(), 4u);
}

}  // namespace
