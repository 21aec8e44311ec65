#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "CtlRun.h"

namespace {

using fake::CtlRun;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Says what it was given.
int Echo(const ctl::Arguments& arguments, const ctl::Surroundings&, ctl::Console& console) {
    console.out << (arguments.json ? "json" : "text");
    for (const std::string& option : arguments.options) {
        console.out << ' ' << option;
    }
    for (const std::string& operand : arguments.operands) {
        console.out << " [" << operand << ']';
    }
    return arguments.has("--bad") ? ctl::kSomethingIsWrong : ctl::kAllIsWell;
}

int Fail(const ctl::Arguments&, const ctl::Surroundings&, ctl::Console&) {
    throw std::runtime_error("no\x1b[2J luck");
}

const std::vector<ctl::Command>& SomeCommands() {
    static const std::vector<ctl::Command> commands{
        {"echo",
         "PATH",
         "says what it was given",
         {{"--bad", "ends with 1"}, {"-f", "goes on"}},
         1,
         1,
         true,
         Echo},
        {"fail", "", "fails", {}, 0, 0, false, Fail},
    };
    return commands;
}

CtlRun Invoke(const std::vector<std::string>& arguments) {
    return fake::RunCtl(arguments, {}, {}, 0, SomeCommands());
}

TEST(CommandLine, GivesACommandItsOptionsAndOperandsInAnyOrder) {
    const CtlRun before = Invoke({"--json", "-f", "echo", "a b"});
    EXPECT_EQ(before.out, "json -f [a b]");
    EXPECT_EQ(before.code, 0);
    const CtlRun behind = Invoke({"echo", "--bad", "-f", "--", "--json"});
    EXPECT_EQ(behind.out, "text --bad -f [--json]");
    EXPECT_EQ(behind.code, 1);
}

TEST(CommandLine, TakesALoneDashForAnOperand) {
    EXPECT_EQ(Invoke({"echo", "-"}).out, "text [-]");
}

TEST(CommandLine, SaysInOneLineWhatItDoesNotUnderstandAndEndsWithTwo) {
    for (const auto& [arguments, what] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{}, "no command"},
             {{"unheard"}, "unknown command 'unheard'"},
             {{"--unheard"}, "unknown option '--unheard'"},
             {{"echo", "--unheard", "a"}, "echo has no option '--unheard'"},
             {{"echo"}, "echo needs PATH"},
             {{"echo", "a", "b"}, "echo does not take 'b'"},
             {{"fail", "--json"}, "fail has no option --json"},
             {{"a\nb\x1b"}, "unknown command 'a\\x0ab\\x1b'"},
         }) {
        const CtlRun run = Invoke(arguments);
        EXPECT_EQ(run.code, 2) << what;
        EXPECT_EQ(run.err, "tessarinctl: " + what + "; see --help\n");
        EXPECT_THAT(run.out, IsEmpty()) << what;
    }
}

TEST(CommandLine, HelpShowsEveryCommandAndWhatOneOfThemTakes) {
    const CtlRun all = Invoke({"--help"});
    EXPECT_EQ(all.code, 0);
    EXPECT_THAT(all.out,
                AllOf(HasSubstr("echo PATH"), HasSubstr("says what it was given"), HasSubstr("fail")));
    const CtlRun one = Invoke({"echo", "-h"});
    EXPECT_EQ(one.code, 0);
    EXPECT_THAT(one.out,
                AllOf(StartsWith("Usage: tessarinctl echo PATH"), HasSubstr("--bad"), HasSubstr("--json")));
    EXPECT_THAT(Invoke({"fail", "--help"}).out, testing::Not(HasSubstr("--json")));
}

TEST(CommandLine, SaysItsVersion) {
    const CtlRun run = Invoke({"--version"});
    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.out, testing::MatchesRegex("tessarinctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CommandLine, AFailureOfACommandIsALineWithoutControlsAndEndsWithOne) {
    const CtlRun run = Invoke({"fail"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "tessarinctl: no\\x1b[2J luck\n");
}

TEST(Commands, EachHasAHelpOfOneLineAndAName) {
    for (const ctl::Command& command : ctl::Commands()) {
        EXPECT_THAT(std::string(command.name), testing::MatchesRegex("[a-z]+"));
        EXPECT_THAT(std::string(command.help), testing::Not(HasSubstr("\n"))) << command.name;
        EXPECT_THAT(std::string(command.help), testing::Not(IsEmpty())) << command.name;
        EXPECT_LE(command.leastOperands, command.mostOperands) << command.name;
        EXPECT_EQ(std::string(command.operands).empty(), command.mostOperands == 0) << command.name;
    }
}

}  // namespace
