#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/LogCapture.h"
#include "usercommon/FileWatch.h"

// What every platform promises of a file watch, on real files.
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Counts the calls of a handler. Thread-safe.
class Calls {
 public:
    void add() {
        const std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    int count() const {
        const std::lock_guard lock(mutex_);
        return count_;
    }
    // False when that takes too long.
    bool reach(int count) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 20s, [&] { return count_ >= count; });
    }

 private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    int count_ = 0;
};

using SharedCalls = std::shared_ptr<Calls>;

std::function<void()> Counting(const SharedCalls& calls) {
    return [calls] { calls->add(); };
}

void Append(const fs::path& file) {
    std::ofstream(file, std::ios::app) << "text\n";
}

class FileWatchTest : public testing::Test {
 protected:
    FileWatchTest() { Append(file); }

    std::unique_ptr<cmn::FileWatch> watchFile(std::function<void()> handler) {
        auto watch = cmn::CreateFileWatch(file, std::move(handler));
        EXPECT_NE(watch, nullptr);
        return watch;
    }

    // Until what happened before has reached every watch: a later change of another file has, and so much
    // time has passed again that a thread which was told earlier has run.
    void settle() const {
        const auto others = std::make_shared<Calls>();
        const fs::path other = folder / "other";
        Append(other);
        const auto watch = cmn::CreateFileWatch(other, Counting(others));
        ASSERT_NE(watch, nullptr);
        Append(other);
        ASSERT_TRUE(others->reach(1));
        std::this_thread::sleep_for(50ms);
    }

    // Writes to a file. Whether a call follows.
    testing::AssertionResult notices(const SharedCalls& counted, const fs::path& written) const {
        const int before = counted->count();
        Append(written);
        return counted->reach(before + 1) ? testing::AssertionSuccess() : testing::AssertionFailure();
    }

    const fake::TemporaryFolder folder;
    const fs::path file = folder / "watched file \xC3\xA4.json";
    fake::LogCapture log;
    const SharedCalls calls = std::make_shared<Calls>();
};

TEST_F(FileWatchTest, CallsTheHandlerWhenTheFileIsWritten) {
    const auto watch = watchFile(Counting(calls));
    std::fstream(file, std::ios::in | std::ios::out) << "T";  // in place
    EXPECT_TRUE(calls->reach(1));
}

TEST_F(FileWatchTest, CallsTheHandlerWhenTheFileIsExtended) {
    const auto watch = watchFile(Counting(calls));
    Append(file);
    EXPECT_TRUE(calls->reach(1));
}

TEST_F(FileWatchTest, CallsTheHandlerWhenTheFileGrowsWithoutBeingWritten) {
    const auto watch = watchFile(Counting(calls));
    fs::resize_file(file, 1000);
    EXPECT_TRUE(calls->reach(1));
}

TEST_F(FileWatchTest, CallsTheHandlerForEveryLaterWriteToo) {
    const auto watch = watchFile(Counting(calls));
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(notices(calls, file)) << i;
    }
}

TEST_F(FileWatchTest, CallsTheHandlerWhenTheFileIsRenamed) {
    const auto watch = watchFile(Counting(calls));
    fs::rename(file, folder / "renamed");
    EXPECT_TRUE(calls->reach(1));
}

TEST_F(FileWatchTest, FollowsARenamedFileAndNotItsOldName) {
    const auto watch = watchFile(Counting(calls));
    fs::rename(file, folder / "renamed");
    ASSERT_TRUE(calls->reach(1));
    settle();
    EXPECT_TRUE(notices(calls, folder / "renamed"));
    settle();
    const int before = calls->count();
    Append(file);  // a new one
    settle();
    EXPECT_EQ(calls->count(), before);
}

TEST_F(FileWatchTest, WatchesTheFileThatALinkLeadsTo) {
    fs::create_symlink(file, folder / "link");
    const auto watch = cmn::CreateFileWatch(folder / "link", Counting(calls));
    ASSERT_NE(watch, nullptr);
    EXPECT_TRUE(notices(calls, file));
}

TEST_F(FileWatchTest, DoesNotCallTheHandlerForPermissionsAndNames) {
    const auto watch = watchFile(Counting(calls));
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_hard_link(file, folder / "second name");
    settle();
    EXPECT_EQ(calls->count(), 0);
    EXPECT_TRUE(notices(calls, file));
}

TEST_F(FileWatchTest, DoesNotCallTheHandlerWhenOnlyTheModificationTimeChanges) {
    const auto watch = watchFile(Counting(calls));
    fs::last_write_time(file, fs::last_write_time(file) - 24h);
    settle();
    fs::last_write_time(file, fs::file_time_type::clock::now());
    settle();
    EXPECT_EQ(calls->count(), 0);
    EXPECT_TRUE(notices(calls, file));
}

TEST_F(FileWatchTest, CallsTheHandlerForAWriteWhoseModificationTimeIsChangedAtOnce) {
    const auto watch = watchFile(Counting(calls));
    for (int i = 0; i < 20; ++i) {
        const int before = calls->count();
        const auto time = fs::last_write_time(file);
        std::fstream(file, std::ios::in | std::ios::out) << i % 10;  // of the same size
        fs::last_write_time(file, time);
        ASSERT_TRUE(calls->reach(before + 1)) << i;
    }
}

TEST_F(FileWatchTest, CallsTheHandlerForWritesToALargeFile) {
    Append(file);
    fs::resize_file(file, 3'000'000);
    const auto watch = watchFile(Counting(calls));
    for (const char* text : {"a", "b"}) {
        const int before = calls->count();
        std::fstream(file, std::ios::in | std::ios::out) << text;
        EXPECT_TRUE(calls->reach(before + 1));
    }
    EXPECT_TRUE(notices(calls, file));
}

TEST_F(FileWatchTest, DoesNotCallTheHandlerWhenTheFileIsRead) {
    const auto watch = watchFile(Counting(calls));
    EXPECT_EQ(fake::ReadLines(file).size(), 1U);
    settle();
    EXPECT_EQ(calls->count(), 0);
}

TEST_F(FileWatchTest, DoesNotCallTheHandlerWhenTheFileIsDeleted) {
    const auto watch = watchFile(Counting(calls));
    fs::remove(file);
    settle();
    EXPECT_EQ(calls->count(), 0);
}

TEST_F(FileWatchTest, DoesNotWatchANewFileInThePlaceOfADeletedOne) {
    const auto watch = watchFile(Counting(calls));
    fs::remove(file);
    Append(file);
    Append(file);
    settle();
    EXPECT_EQ(calls->count(), 0);
}

TEST_F(FileWatchTest, StaysWithAFileThatAnotherOneReplaced) {
    std::ofstream open(file, std::ios::app);
    const auto watch = watchFile(Counting(calls));
    Append(folder / "replacement");
    fs::rename(folder / "replacement", file);
    Append(file);
    settle();
    EXPECT_EQ(calls->count(), 0);
    open << "text" << std::flush;
    EXPECT_TRUE(calls->reach(1));
}

TEST_F(FileWatchTest, CallsTheHandlerForAWriteAfterTheDeletionByWhoeverHasItOpen) {
    std::ofstream open(file, std::ios::app);
    const auto watch = watchFile(Counting(calls));
    fs::remove(file);
    open << "text" << std::flush;
    EXPECT_TRUE(calls->reach(1));
    open.close();
    settle();  // nothing is left to be watched
}

TEST_F(FileWatchTest, AWatchOfADeletedFileCanBeDestroyed) {
    auto watch = watchFile(Counting(calls));
    fs::remove(file);
    settle();
    watch.reset();
    EXPECT_EQ(calls->count(), 0);
}

TEST_F(FileWatchTest, CallsTheHandlerAfterTheLastOfManyChanges) {
    const auto seen = std::make_shared<std::atomic<std::uintmax_t>>(0);
    const auto watch = watchFile([path = file, seen] { *seen = fs::file_size(path); });
    for (int i = 0; i < 500; ++i) {
        Append(file);
    }
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (*seen != fs::file_size(file) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(*seen, fs::file_size(file));
}

TEST_F(FileWatchTest, CallsTheHandlerOnAnotherThreadAndOnceAtATime) {
    struct State {
        const std::thread::id testThread = std::this_thread::get_id();
        std::atomic<int> running{0};
        std::atomic<bool> overlapped{false};
        std::atomic<bool> onTestThread{false};
    };
    const auto state = std::make_shared<State>();
    const auto watch = watchFile([state, counted = calls] {
        if (++state->running > 1) {
            state->overlapped = true;
        }
        if (std::this_thread::get_id() == state->testThread) {
            state->onTestThread = true;
        }
        std::this_thread::sleep_for(5ms);
        --state->running;
        counted->add();
    });
    for (int i = 0; i < 20; ++i) {
        Append(file);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(calls->reach(2));
    settle();
    EXPECT_FALSE(state->overlapped);
    EXPECT_FALSE(state->onTestThread);
}

TEST_F(FileWatchTest, AChangeDuringACallBringsAnotherOne) {
    const auto released = std::make_shared<std::latch>(1);
    const auto watch = watchFile([released, counted = calls] {
        counted->add();
        released->wait();
    });
    Append(file);
    ASSERT_TRUE(calls->reach(1));
    Append(file);
    released->count_down();
    EXPECT_TRUE(calls->reach(2));
}

TEST_F(FileWatchTest, TwoWatchesOfOneFileAreIndependent) {
    const auto others = std::make_shared<Calls>();
    auto first = watchFile(Counting(calls));
    const auto second = watchFile(Counting(others));
    Append(file);
    EXPECT_TRUE(calls->reach(1));
    EXPECT_TRUE(others->reach(1));
    first.reset();
    EXPECT_TRUE(notices(others, file));
}

TEST_F(FileWatchTest, ASlowHandlerLosesNoChangeOfAnotherFile) {
    const auto released = std::make_shared<std::latch>(1);
    const auto others = std::make_shared<Calls>();
    Append(folder / "other");
    const auto slow = watchFile([counted = calls, released] {
        counted->add();
        released->wait();
    });
    const auto other = cmn::CreateFileWatch(folder / "other", Counting(others));
    ASSERT_NE(other, nullptr);
    Append(file);
    ASSERT_TRUE(calls->reach(1));
    Append(folder / "other");
    released->count_down();
    EXPECT_TRUE(others->reach(1));
}

TEST_F(FileWatchTest, NothingIsCalledAfterTheDestruction) {
    auto watch = watchFile(Counting(calls));
    EXPECT_TRUE(notices(calls, file));
    settle();
    watch.reset();
    const int before = calls->count();
    Append(file);
    fs::rename(file, folder / "renamed");
    settle();
    EXPECT_EQ(calls->count(), before);
}

TEST_F(FileWatchTest, DestructionDoesNotWaitForARunningHandlerAndDropsTheChangesBehindIt) {
    // All that the handler touches is its own: it goes on after the watch.
    const auto released = std::make_shared<std::latch>(1);
    const auto finished = std::make_shared<Calls>();
    auto watch = watchFile([counted = calls, released, finished] {
        counted->add();
        released->wait();
        finished->add();
    });
    Append(file);
    ASSERT_TRUE(calls->reach(1));
    Append(file);
    watch.reset();  // would not return otherwise
    EXPECT_EQ(finished->count(), 0);
    released->count_down();
    EXPECT_TRUE(finished->reach(1));
    settle();
    EXPECT_EQ(calls->count(), 1);
}

TEST_F(FileWatchTest, AHandlerMayDestroyItsWatch) {
    const auto watch = std::make_shared<std::unique_ptr<cmn::FileWatch>>();
    const auto ready = std::make_shared<std::latch>(1);
    *watch = watchFile([watch = std::weak_ptr(watch), ready, counted = calls] {
        ready->wait();
        if (const auto own = watch.lock()) {
            own->reset();
        }
        counted->add();  // what the handler holds is still there
    });
    ready->count_down();
    Append(file);
    ASSERT_TRUE(calls->reach(1));
    EXPECT_EQ(*watch, nullptr);
    Append(file);
    settle();
    EXPECT_EQ(calls->count(), 1);
}

TEST_F(FileWatchTest, AFailingHandlerIsLoggedAndCalledAgain) {
    const auto watch = watchFile([counted = calls] {
        counted->add();
        if (counted->count() == 1) {
            throw std::runtime_error("no room for {}");
        }
        throw 2;  // nothing that says what it is
    });
    EXPECT_TRUE(notices(calls, file));
    settle();
    EXPECT_TRUE(notices(calls, file));
    settle();
    EXPECT_TRUE(notices(calls, file));
    EXPECT_EQ(log.count("The handler of a watched file -- failed: no room for {}"), 1U);
    EXPECT_TRUE(log.contains("The handler of a watched file -- failed: not a standard exception"));
}

TEST_F(FileWatchTest, TheHandlerMayBeEmpty) {
    const auto watch = watchFile(nullptr);
    Append(file);
    fs::rename(file, folder / "renamed");
    settle();
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(FileWatchTest, AFileThatDoesNotExistCannotBeWatched) {
    EXPECT_EQ(cmn::CreateFileWatch(folder / "missing", Counting(calls)), nullptr);
    EXPECT_EQ(cmn::CreateFileWatch(folder / "missing" / "file", Counting(calls)), nullptr);
    EXPECT_EQ(cmn::CreateFileWatch(file / "below a file", Counting(calls)), nullptr);
    EXPECT_EQ(cmn::CreateFileWatch("", Counting(calls)), nullptr);
    EXPECT_EQ(log.lines().size(), 0U);
}

TEST_F(FileWatchTest, AFileThatMayNotBeReadCannotBeWatched) {
    fs::permissions(file, fs::perms::none);
    if (std::ifstream(file).is_open()) {
        GTEST_SKIP() << "this user may read every file";
    }
    EXPECT_EQ(cmn::CreateFileWatch(file, Counting(calls)), nullptr);
    EXPECT_EQ(log.lines().size(), 0U);
}

}  // namespace
