#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace {

using testing::HasSubstr;

// What the shell offers for the last of these words, sorted.
std::vector<std::string> Offered(const std::string& words) {
    const std::string script =
        "PATH=${0%/*}:$PATH; source \"$1\"; eval \"COMP_WORDS=(tessarinctl $2)\"; "
        "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tessarinctl tessarinctl; "
        "printf '%s\\n' \"${COMPREPLY[@]}\" | LC_ALL=C sort";
    fake::ChildProcess shell({"bash", "--norc", "-c", script, TESSARIN_CTL, TESSARIN_COMPLETION, words});
    shell.closeInput();
    std::vector<std::string> offered;
    while (const auto line = shell.readLine()) {
        offered.push_back(*line);
    }
    EXPECT_EQ(shell.wait(), 0) << shell.errors();
    EXPECT_EQ(shell.errors(), "");
    return offered;
}

TEST(Completion, OffersTheCommandsOfTheTable) {
    std::vector<std::string> expected;
    for (const ctl::Command& command : ctl::Commands()) {
        expected.emplace_back(command.name);
    }
    EXPECT_THAT(Offered("''"), testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(Offered("sta"), testing::ElementsAre("status"));
}

TEST(Completion, OffersTheOptionsOfEachCommand) {
    for (const ctl::Command& command : ctl::Commands()) {
        std::vector<std::string> expected{"--help", "-h"};
        for (const ctl::Option& option : command.options) {
            expected.emplace_back(option.name);
        }
        if (command.hasJson) {
            expected.emplace_back("--json");
        }
        EXPECT_THAT(Offered(std::string(command.name) + " -"), testing::UnorderedElementsAreArray(expected))
            << command.name;
    }
    EXPECT_THAT(Offered("--v"), testing::ElementsAre("--version"));
}

TEST(Completion, OffersFilesWhereACommandTakesOne) {
    const fake::TemporaryFolder folder;
    std::ofstream(folder / "a file.txt") << "";
    const std::string begin = "'" + folder.path().string() + "/a'";
    EXPECT_THAT(Offered("scan " + begin), testing::ElementsAre((folder / "a file.txt").string()));
    EXPECT_THAT(Offered("open " + begin), testing::ElementsAre((folder / "a file.txt").string()));
    EXPECT_THAT(Offered("status " + begin), testing::ElementsAre(""));
}

TEST(ManualPage, HasEveryCommandAndEveryOption) {
    std::ostringstream text;
    text << std::ifstream(TESSARIN_CTL_MANUAL).rdbuf();
    std::string page = text.str();
    for (std::size_t at = 0; (at = page.find("\\-", at)) != std::string::npos; ++at) {
        page.erase(at, 1);
    }
    for (const ctl::Command& command : ctl::Commands()) {
        EXPECT_THAT(page,
                    HasSubstr(std::string("\n.B") + (*command.operands != '\0' ? "R " : " ") + command.name))
            << command.name;
        for (const ctl::Option& option : command.options) {
            EXPECT_THAT(page, HasSubstr(option.name)) << command.name;
        }
    }
}

}  // namespace
