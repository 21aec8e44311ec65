#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "Failures.h"
#include "OwnProcess.h"
#include "common/SystemUtils.h"
#include "common/log.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"

namespace {

using cmn::ExecProcess;
using fake::FailureOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string Shell(const std::string& command) {
    return ExecProcess("/bin/sh", {"-c", command}, false);
}

class ExecProcessTest : public testing::Test {
 protected:
    fake::LogCapture log_;
};

testing::Matcher<std::string> Line(const std::string& tag, const std::string& body) {
    return AllOf(StartsWith(tag + " ["), HasSubstr(" exec_report.cpp:"), EndsWith(" ExecProcess -- " + body));
}

TEST_F(ExecProcessTest, ReturnsBothOutputsInTheOrderTheyWereWritten) {
    EXPECT_EQ(Shell("echo one; echo two >&2; echo three"), "one\ntwo\nthree\n");
    EXPECT_EQ(Shell(":"), "");
}

TEST_F(ExecProcessTest, PassesArgumentsAsTheyAre) {
    EXPECT_EQ(ExecProcess("/usr/bin/printf", {"<%s>", "a b", "", "$HOME", "*"}, false), "<a b><><$HOME><*>");
}

TEST_F(ExecProcessTest, LogsASuccessAtInfo) {
    ExecProcess("/bin/echo", {"a", "b c"}, true);
    // The output's own line end is part of the line.
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ INFO]", "/bin/echo a b c -- (0) -- a b c"), ""));
}

TEST_F(ExecProcessTest, LogsAFailureAsAnErrorAndAtInfo) {
    EXPECT_EQ(ExecProcess("/bin/sh", {"-c", "printf out; exit 3"}, true), "out");
    const std::string body = "/bin/sh -c printf out; exit 3 -- (3) -- out";
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", body), Line("[ INFO]", body)));
}

TEST_F(ExecProcessTest, LogsAFailureOnlyAtInfoWhenFailuresAreNotAskedFor) {
    ExecProcess("/bin/sh", {"-c", "exit 1"}, false);
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ INFO]", "/bin/sh -c exit 1 -- (1) -- ")));
}

TEST_F(ExecProcessTest, SignalThatEndedTheProgramIsItsStatus) {
    ExecProcess("/bin/sh", {"-c", "kill -9 $$"}, true);
    EXPECT_TRUE(log_.contains("/bin/sh -c kill -9 $$ -- (9) -- "));
    EXPECT_EQ(log_.count("[ERROR]"), 1U);
}

TEST_F(ExecProcessTest, ReadsMoreThanAPipeHolds) {
    const auto output = Shell("i=0; while [ $i -lt 2000 ]; do printf '%0100d' 0; i=$((i+1)); done");
    EXPECT_EQ(output, std::string(200'000, '0'));
}

TEST_F(ExecProcessTest, OutputThatIsNotUtf8IsEmpty) {
    EXPECT_EQ(Shell("printf 'a\\303\\244'"), "a\u00e4");
    EXPECT_EQ(Shell("printf 'a\\377b'"), "");
    EXPECT_THAT(log_.lines(), testing::Contains(EndsWith("377b' -- (0) -- ")));
}

TEST_F(ExecProcessTest, MissingProgramThrows) {
    EXPECT_EQ(FailureOf([] { ExecProcess("/no/such/program", {}, true); }),
              std::string("[ExecProcess] Can't launch (/no/such/program) Error: ") + std::strerror(ENOENT));
    EXPECT_EQ(FailureOf([] { ExecProcess("/etc/passwd", {}, true); }),
              std::string("[ExecProcess] Can't launch (/etc/passwd) Error: ") + std::strerror(EACCES));
    EXPECT_THROW(ExecProcess("", {}, true), std::runtime_error);
}

TEST_F(ExecProcessTest, StartsProgramsWithDefaultSignals) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
    const auto previous = signal(SIGINT, SIG_IGN);
    const auto mask = [](const std::string& name) {
        return std::stoull(Shell("sed -n 's/^" + name + ":[[:space:]]*//p' /proc/self/status"), nullptr, 16);
    };
    const auto blockedThere = mask("SigBlk");
    const auto ignoredThere = mask("SigIgn");
    signal(SIGINT, previous);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(blockedThere, 0U);
    // The C library keeps signals 32 and 33 for itself.
    EXPECT_EQ(ignoredThere & ~0x180000000ULL, 0U);
}

TEST_F(ExecProcessTest, GivesThePipeToTheProgramAsItsTwoOutputsOnly) {
    const auto files = ExecProcess("/bin/ls", {"-l", "/proc/self/fd"}, false);
    const auto begin = files.find("1 -> ") + 5;
    const auto pipe = files.substr(begin, files.find('\n', begin) - begin);
    ASSERT_THAT(pipe, testing::StartsWith("pipe:["));
    int uses = 0;
    for (auto found = files.find(pipe); found != std::string::npos; found = files.find(pipe, found + 1))
        ++uses;
    EXPECT_EQ(uses, 2);
}

TEST_F(ExecProcessTest, PassesNoDescriptorButTheStandardOnes) {
    const int low = open("/dev/null", O_RDONLY);
    const int high = fcntl(low, F_DUPFD, 900);
    const auto files = ExecProcess("/bin/ls", {"/proc/self/fd"}, false);
    close(low);
    close(high);
    ASSERT_GE(high, 900);
    EXPECT_EQ(files, "0\n1\n2\n3\n");  // the last is the listing's own
}

TEST_F(ExecProcessTest, LeavesNoDescriptorOpen) {
    const auto before = fake::OpenDescriptors();
    Shell("echo out");
    EXPECT_THROW(ExecProcess("/no/such/program", {}, false), std::runtime_error);
    EXPECT_EQ(fake::OpenDescriptors(), before);
}

// Whether this process has a child, running or not waited for.
bool HasChild() {
    return waitpid(-1, nullptr, WNOHANG) == 0 || errno != ECHILD;
}

TEST_F(ExecProcessTest, LeavesNoChildBehind) {
    Shell("exit 3");
    EXPECT_FALSE(HasChild());
    EXPECT_THROW(ExecProcess("/no/such/program", {}, false), std::runtime_error);
    EXPECT_FALSE(HasChild());
}

TEST_F(ExecProcessTest, LeavesNoChildBehindWhenItsOutputDoesNotFitIntoMemory) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer takes more memory than there would be.";
#endif
    EXPECT_EQ(fake::AnswerInChild([] {
                  const rlimit little{400 << 20, 400 << 20};
                  setrlimit(RLIMIT_AS, &little);
                  // None is left that large but one, which the start of the program needs. A pool of the
                  // allocator would not give it back.
                  constexpr std::size_t kLarge = std::size_t{256} * 1024;
                  mallopt(M_MMAP_THRESHOLD, kLarge / 2);
                  void* const one = mmap(nullptr, kLarge, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
                  std::vector<std::unique_ptr<char[]>> taken;  // NOLINT(modernize-avoid-c-arrays)
                  taken.reserve(10'000);
                  while (char* const block = new (std::nothrow) char[kLarge])
                      taken.emplace_back(block);
                  munmap(one, kLarge);
                  try {
                      // The first line never ends, and the program would go on without an output, too.
                      Shell("trap '' PIPE; tr '\\0' x </dev/zero; exec sleep 1000");
                  } catch (const std::bad_alloc&) {
                      return std::string(HasChild() ? "left a child" : "left no child");
                  }
                  return std::string("had memory");
              }),
              "left no child");
}

// What a command that would never end has written when it is ended.
std::string OutputOfEndless(const std::string& command, std::chrono::milliseconds deadline) {
    return ExecProcess("/bin/sh", {"-c", command}, true, deadline);
}

TEST_F(ExecProcessTest, ProgramThatDoesNotEndIsEndedWithThoseThatItStarted) {
    const fake::TemporaryFolder folder;
    const std::filesystem::path gate = folder / "gate";
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    // Both hold the gate open.
    const std::string command = "exec 3<>" + gate.string() + "; echo out; sleep 1000 & sleep 1000";
    EXPECT_EQ(OutputOfEndless(command, std::chrono::milliseconds(500)), "out\n");
    EXPECT_FALSE(HasChild());
    EXPECT_TRUE(log_.contains("ExecProcess -- /bin/sh -c " + command + " -- was ended: it took too long"));
    EXPECT_EQ(log_.count("[ WARN]"), 1U);
    EXPECT_TRUE(log_.contains(command + " -- (9) -- out"));
    // When nobody has it open for reading any more, it cannot be opened for writing.
    int writable = 0;
    for (int i = 0; i < 2000 && writable >= 0; ++i) {
        writable = open(gate.c_str(), O_WRONLY | O_NONBLOCK);
        if (writable >= 0) {
            close(writable);
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    EXPECT_LT(writable, 0) << "somebody still runs";
}

TEST_F(ExecProcessTest, ProgramThatClosesItsOutputAndStaysIsEnded) {
    const std::string command = "echo out; exec >&- 2>&-; exec sleep 1000";
    EXPECT_EQ(OutputOfEndless(command, std::chrono::milliseconds(500)), "out\n");
    EXPECT_FALSE(HasChild());
    EXPECT_TRUE(log_.contains(command + " -- was ended: it took too long"));
}

TEST_F(ExecProcessTest, ProgramWhoseHeirKeepsItsOutputIsNotWaitedForLongerThanTheDeadline) {
    EXPECT_EQ(OutputOfEndless("echo out; sleep 1000 & exit 3", std::chrono::milliseconds(500)), "out\n");
    EXPECT_TRUE(log_.contains("-- was ended: it took too long"));
    EXPECT_TRUE(log_.contains("exit 3 -- (3) -- out")) << "its own status";
}

TEST_F(ExecProcessTest, ProgramThatFloodsItsOutputIsEnded) {
    const auto output = OutputOfEndless("exec tr '\\0' x </dev/zero", std::chrono::minutes(10));
    EXPECT_GT(output.size(), 1U << 20);
    EXPECT_LT(output.size(), 2U << 20);
    EXPECT_TRUE(log_.contains("-- was ended: it wrote too much"));
    EXPECT_FALSE(HasChild());
}

TEST_F(ExecProcessTest, ProgramThatWritesWithoutEndIsEndedAtTheDeadline) {
    const auto output =
        OutputOfEndless("while :; do echo out; sleep 0.01; done", std::chrono::milliseconds(300));
    EXPECT_THAT(output, StartsWith("out\nout\n"));
    EXPECT_TRUE(log_.contains("-- was ended: it took too long"));
}

TEST_F(ExecProcessTest, NothingIsSaidOfAProgramThatEndsInTime) {
    EXPECT_EQ(OutputOfEndless("echo out", std::chrono::minutes(1)), "out\n");
    EXPECT_EQ(log_.count("was ended"), 0U);
}

class IgnoredChildSignal {
 public:
    explicit IgnoredChildSignal(int flags = 0) {
        struct sigaction action {};
        action.sa_handler = flags == 0 ? SIG_IGN : [](int) {};
        action.sa_flags = flags;
        sigaction(SIGCHLD, &action, &previous_);
    }
    ~IgnoredChildSignal() { sigaction(SIGCHLD, &previous_, nullptr); }

    static bool stillIgnored() {
        struct sigaction now {};
        sigaction(SIGCHLD, nullptr, &now);
        return now.sa_handler == SIG_IGN;
    }

 private:
    struct sigaction previous_ {};
};

TEST_F(ExecProcessTest, KnowsTheStatusWhereTheEndOfChildrenIsIgnored) {
    const IgnoredChildSignal ignored;
    EXPECT_EQ(ExecProcess("/bin/sh", {"-c", "echo out"}, true), "out\n");
    ExecProcess("/bin/sh", {"-c", "exit 3"}, true);
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ INFO]", "/bin/sh -c echo out -- (0) -- out"), "",
                                          Line("[ERROR]", "/bin/sh -c exit 3 -- (3) -- "),
                                          Line("[ INFO]", "/bin/sh -c exit 3 -- (3) -- ")));
    EXPECT_TRUE(IgnoredChildSignal::stillIgnored());
    EXPECT_FALSE(HasChild());
}

TEST_F(ExecProcessTest, KnowsTheStatusWhereChildrenDoNotWaitToBeAskedFor) {
    const IgnoredChildSignal forgotten(SA_NOCLDWAIT);
    ExecProcess("/bin/sh", {"-c", "exit 3"}, false);
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ INFO]", "/bin/sh -c exit 3 -- (3) -- ")));
}

TEST_F(ExecProcessTest, KnowsEveryStatusOfManyThreadsWhereTheEndOfChildrenIsIgnored) {
    const IgnoredChildSignal ignored;
    fake::InThreads(4, [](int) {
        for (int i = 0; i < 10; ++i)
            Shell("exit 3");
    });
    EXPECT_EQ(log_.count("/bin/sh -c exit 3 -- (3) -- "), 40U);
    EXPECT_TRUE(IgnoredChildSignal::stillIgnored());
}

std::atomic<int> g_signals = 0;

// Signals without end for a thread that runs programs.
class InterruptedTest : public ExecProcessTest {
 protected:
    InterruptedTest() {
        mkfifo(gate_.c_str(), 0600);
        struct sigaction action {};
        action.sa_handler = [](int) { ++g_signals; };  // calls in progress end with an error
        sigaction(SIGUSR1, &action, &previous_);
    }
    ~InterruptedTest() override { sigaction(SIGUSR1, &previous_, nullptr); }

    // What a command gives that begins, waits for the gate and goes on; while it waits, the thread that runs
    // it is interrupted again and again.
    std::string outputOf(const std::string& begin, const std::string& goOn) {
        std::string output;
        std::atomic<bool> ended = false;
        std::thread runner([&] {
            output = Shell(begin + " read line <" + gate_.string() + "; " + goOn);
            ended = true;
        });
        // Opens when the command waits.
        const int gate = open(gate_.c_str(), O_WRONLY);
        for (int i = 0; i < 50; ++i) {
            const int before = g_signals;
            pthread_kill(runner.native_handle(), SIGUSR1);
            while (g_signals == before && !ended)
                std::this_thread::yield();
            // So that it is in its call again.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        close(gate);
        runner.join();
        return output;
    }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path gate_ = folder_ / "gate";
    struct sigaction previous_ {};
};

TEST_F(InterruptedTest, ReadsOnAfterASignal) {
    EXPECT_EQ(outputOf("echo one;", "echo two"), "one\ntwo\n");
}

TEST_F(InterruptedTest, WaitsOnAfterASignal) {
    EXPECT_EQ(outputOf("echo one; exec >&- 2>&-;", "exit 7"), "one\n");
    EXPECT_THAT(log_.text(), HasSubstr(" -- (7) -- one"));
}

TEST_F(ExecProcessTest, RunsInManyThreadsAtOnce) {
    fake::InThreads(4, [](int t) {
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(Shell("echo " + std::to_string(t)), std::to_string(t) + "\n");
    });
}

}  // namespace
