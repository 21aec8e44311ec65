#include <gmock/gmock.h>
#include <signal.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Failures.h"
#include "common/SystemUtils.h"
#include "common/log.h"
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

TEST_F(ExecProcessTest, RunsInManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 10; ++i)
                EXPECT_EQ(Shell("echo " + std::to_string(t)), std::to_string(t) + "\n");
        });
    }
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
