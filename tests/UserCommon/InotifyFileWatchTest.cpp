#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>
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
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = fs::read_symlink(entry, gone).string();
        if (target.starts_with("anon_inode:")) {
            const int descriptor = std::stoi(entry.path().filename().string());
            EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << target;
            seen += target == "anon_inode:inotify" ? 1 : 0;
        }
    }
    EXPECT_EQ(seen, 1);
}

TEST_F(InotifyFileWatchTest, SaysWhenTheSystemHasNothingLeftToGiveAndKeepsNothing) {
    struct Refusal {
        std::vector<int> calls;
        int error;
        const char* text;
    };
    const std::vector<Refusal> refusals{
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
