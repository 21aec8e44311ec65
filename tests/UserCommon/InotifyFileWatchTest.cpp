#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <latch>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "support/LogCapture.h"
#include "support/WaitFor.h"
#include "usercommon/FileWatch.h"

// What a file watch takes from the system, and gives back.
namespace {

namespace fs = std::filesystem;

std::ptrdiff_t Entries(const char* folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}
std::ptrdiff_t OpenDescriptors() {
    return Entries("/proc/self/fd");
}
std::ptrdiff_t RunningThreads() {
    return Entries("/proc/self/task");
}

// What the process has open: descriptor and name.
std::vector<std::pair<int, std::string>> Descriptors() {
    std::vector<std::pair<int, std::string>> found;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        found.emplace_back(std::stoi(entry.path().filename().string()),
                           fs::read_symlink(entry, gone).string());
    }
    return found;
}
std::ptrdiff_t InotifyInstances() {
    return std::ranges::count(Descriptors(), "anon_inode:inotify", &std::pair<int, std::string>::second);
}

// From now on the system refuses a call to this thread, and to those that it starts, with an error.
bool RefuseToThisThread(int call, int error) {
    const std::array<sock_filter, 4> program{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog filter{program.size(), const_cast<sock_filter*>(program.data())};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class InotifyFileWatchTest : public testing::Test {
 protected:
    InotifyFileWatchTest() { append(); }

    void append() const { std::ofstream(file, std::ios::app) << "text\n"; }

    const fake::TemporaryFolder folder;
    const fs::path file = folder / "watched";
    fake::LogCapture log;
};

TEST_F(InotifyFileWatchTest, GivesDescriptorsAndThreadBackAtOnce) {
    const auto descriptors = OpenDescriptors();
    const auto threads = RunningThreads();
    for (int i = 0; i < 20; ++i) {
        const auto watch = cmn::CreateFileWatch(file, [] {});
        ASSERT_NE(watch, nullptr);
        EXPECT_EQ(RunningThreads(), threads + 1);
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(RunningThreads(), threads);
}

TEST_F(InotifyFileWatchTest, GivesThemBackAfterTheHandlerThatWasRunning) {
    const auto descriptors = OpenDescriptors();
    const auto threads = RunningThreads();
    const auto started = std::make_shared<std::latch>(1);
    const auto released = std::make_shared<std::latch>(1);
    auto watch = cmn::CreateFileWatch(file, [started, released] {
        started->count_down();
        released->wait();
    });
    append();
    started->wait();
    watch.reset();
    EXPECT_EQ(RunningThreads(), threads + 1);
    released->count_down();
    EXPECT_TRUE(fake::WaitInHandler([&] { return RunningThreads() == threads; }));
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(InotifyFileWatchTest, WatchesTwoHundredFilesWithOneInstanceAndOneThread) {
    constexpr std::size_t kFiles = 200;
    const auto descriptors = OpenDescriptors();
    const auto threads = RunningThreads();
    std::vector<std::unique_ptr<cmn::FileWatch>> watches;
    const auto calls = std::make_shared<std::vector<std::atomic<int>>>(kFiles);
    const auto name = [&](std::size_t number) { return folder / std::to_string(number); };
    for (std::size_t i = 0; i < kFiles; ++i) {
        std::ofstream(name(i)) << "text";
        watches.push_back(cmn::CreateFileWatch(name(i), [calls, i] { ++(*calls)[i]; }));
        ASSERT_NE(watches.back(), nullptr) << i;
    }
    EXPECT_EQ(RunningThreads(), threads + 1);
    EXPECT_EQ(InotifyInstances(), 1);
    for (std::size_t i = 0; i < kFiles; i += 2) {
        watches[i].reset();
    }
    for (std::size_t i = 0; i < kFiles; ++i) {
        std::ofstream(name(i), std::ios::app) << "more";
    }
    for (std::size_t i = 1; i < kFiles; i += 2) {
        EXPECT_TRUE(fake::WaitInHandler([&] { return (*calls)[i] > 0; })) << i;
        EXPECT_EQ((*calls)[i - 1], 0) << "no longer watched";
    }
    watches.clear();
    EXPECT_EQ(RunningThreads(), threads);
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(InotifyFileWatchTest, ANewModificationTimeIsNoWriteHoweverItIsSet) {
    std::atomic<int> calls{0};
    const auto watch = cmn::CreateFileWatch(file, [&calls] { ++calls; });
    const std::array<timespec, 2> now{
        {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, {.tv_sec = 0, .tv_nsec = UTIME_NOW}}};
    const std::array<timespec, 2> past{{{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, {.tv_sec = 1, .tv_nsec = 1}}};
    for (const auto& times : {now, past}) {
        ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
        const int opened = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_EQ(::futimens(opened, times.data()), 0);
        ::close(opened);
    }
    // The changes before are told by the time another file's is: one thread tells them all.
    std::atomic<int> others{0};
    std::ofstream(folder / "other") << "text";
    const auto other = cmn::CreateFileWatch(folder / "other", [&others] { ++others; });
    std::ofstream(folder / "other", std::ios::app) << "more";
    ASSERT_TRUE(fake::WaitInHandler([&] { return others > 0; }));
    EXPECT_EQ(calls, 0);
    append();
    EXPECT_TRUE(fake::WaitInHandler([&] { return calls > 0; }));
}

TEST_F(InotifyFileWatchTest, AFifoIsWatchedWithoutBeingOpened) {
    const auto fifo = folder / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::atomic<int> calls{0};
    const auto watch = cmn::CreateFileWatch(fifo, [&calls] { ++calls; });
    ASSERT_NE(watch, nullptr);
    EXPECT_EQ(::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1) << "nobody reads from it";
    const int both = ::open(fifo.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::write(both, "x", 1), 1);
    EXPECT_TRUE(fake::WaitInHandler([&] { return calls > 0; }));
    char byte = 0;
    EXPECT_EQ(::read(both, &byte, 1), 1) << "it is still there";
    ::close(both);
}

TEST_F(InotifyFileWatchTest, AHandlerMayOwnTheLastWatch) {
    const auto threads = RunningThreads();
    const auto started = std::make_shared<std::latch>(1);
    const auto released = std::make_shared<std::latch>(1);
    std::ofstream(folder / "other") << "text";
    std::shared_ptr<cmn::FileWatch> inner = cmn::CreateFileWatch(folder / "other", [] {});
    auto watch = cmn::CreateFileWatch(file, [started, released, inner] {
        started->count_down();
        released->wait();
    });
    inner.reset();
    append();
    started->wait();
    watch.reset();
    EXPECT_EQ(RunningThreads(), threads + 1);
    released->count_down();  // now the thread lets the handler go, and with it the last watch
    EXPECT_TRUE(fake::WaitInHandler([&] { return RunningThreads() == threads; }));
}

// A file whose handler holds the thread up, so that changes of other files gather in the instance.
class HeldUp {
 public:
    explicit HeldUp(const fs::path& file) : file_(file) {
        std::ofstream(file_) << "text";
        watch_ = cmn::CreateFileWatch(file_, [this] {
            started_.count_down();
            released_.wait();
        });
        std::ofstream(file_, std::ios::app) << "more";
        started_.wait();
    }
    void release() { released_.count_down(); }

 private:
    const fs::path file_;
    std::latch started_{1};
    std::latch released_{1};
    std::unique_ptr<cmn::FileWatch> watch_;
};

TEST_F(InotifyFileWatchTest, AHandlerMayDestroyTheWatchOfAnotherFileThatHasChangedToo) {
    HeldUp thread(folder / "slow");
    std::array<std::unique_ptr<cmn::FileWatch>, 2> watches;
    std::atomic<int> calls{0};
    for (const std::size_t i : {0U, 1U}) {
        const auto other = folder / std::to_string(i);
        std::ofstream(other) << "text";
        watches[i] = cmn::CreateFileWatch(other, [&, i] {
            watches[1 - i].reset();
            ++calls;
        });
        std::ofstream(other, std::ios::app) << "more";
    }
    std::atomic<int> last{0};
    const auto watch = cmn::CreateFileWatch(file, [&last] { ++last; });
    append();
    thread.release();
    ASSERT_TRUE(fake::WaitInHandler([&] { return last > 0; })) << "told after the others";
    EXPECT_EQ(calls, 1) << "the other one was destroyed";
}

TEST_F(InotifyFileWatchTest, ChangesThatTheSystemHasNoRoomForAreToldAllTheSame) {
    int most = 0;
    ASSERT_TRUE(std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most);
    HeldUp thread(folder / "slow");
    // Equal events in a row are one.
    std::array<std::ofstream, 2> turns{std::ofstream(folder / "0"), std::ofstream(folder / "1")};
    const auto first = cmn::CreateFileWatch(folder / "0", [] {});
    const auto second = cmn::CreateFileWatch(folder / "1", [] {});
    std::atomic<int> calls{0};
    const auto watch = cmn::CreateFileWatch(file, [&calls] { ++calls; });
    for (int i = 0; i <= most; ++i) {
        turns[static_cast<std::size_t>(i % 2)] << "x" << std::flush;
    }
    append();
    thread.release();
    EXPECT_TRUE(fake::WaitInHandler([&] { return calls > 0; }));
}

TEST_F(InotifyFileWatchTest, TakesNothingForAFileThatCannotBeWatched) {
    const auto descriptors = OpenDescriptors();
    const auto threads = RunningThreads();
    EXPECT_EQ(cmn::CreateFileWatch(folder / "missing", [] {}), nullptr);
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(RunningThreads(), threads);
}

TEST_F(InotifyFileWatchTest, DescriptorsAreNotPassedOnToPrograms) {
    const auto watch = cmn::CreateFileWatch(file, [] {});
    int seen = 0;
    for (const auto& [descriptor, target] : Descriptors()) {
        if (target.starts_with("anon_inode:") || target == fs::canonical(file)) {
            EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << target;
            seen += target == "anon_inode:inotify" || target == fs::canonical(file) ? 1 : 0;
        }
    }
    EXPECT_EQ(seen, 2);
}

TEST_F(InotifyFileWatchTest, SaysWhenTheSystemHasNothingLeftToGiveAndKeepsNothing) {
    struct Refusal {
        std::vector<int> calls;
        int error;
        const char* text;
    };
    const std::vector<Refusal> refusals{
        {{SYS_openat, SYS_open}, EMFILE, "Too many open files"},
        {{SYS_inotify_init1}, EMFILE, "Too many open files"},
        {{SYS_inotify_add_watch}, ENOSPC, "No space left on device"},
        {{SYS_inotify_add_watch}, ENOMEM, "Cannot allocate memory"},
        {{SYS_epoll_create1}, EMFILE, "Too many open files"},
        {{SYS_epoll_ctl}, ENOSPC, "No space left on device"},
        {{SYS_clone3, SYS_clone}, EAGAIN, "Resource temporarily unavailable"},
    };
    const auto descriptors = OpenDescriptors();
    std::size_t logged = 0;
    for (const Refusal& refusal : refusals) {
        bool refused = true;
        bool watched = false;
        std::thread([&] {
            for (const int call : refusal.calls) {
                refused = refused && RefuseToThisThread(call, refusal.error);
            }
            watched = refused && cmn::CreateFileWatch(file, [] {}) != nullptr;
        }).join();
        ASSERT_TRUE(refused) << "this system has no filters for calls";
        EXPECT_FALSE(watched) << refusal.calls[0];
        const auto lines = log.linesWith("Cannot watch " + file.string() + " -- ");
        ASSERT_EQ(lines.size(), ++logged) << refusal.calls[0];
        EXPECT_THAT(lines.back(), testing::HasSubstr(refusal.text));
        EXPECT_TRUE(fake::WaitInHandler([&] { return OpenDescriptors() == descriptors; }))
            << refusal.calls[0];
    }
    EXPECT_NE(cmn::CreateFileWatch(file, [] {}), nullptr) << "it can be watched again";
}

}  // namespace
