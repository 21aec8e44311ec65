#include <cstddef>
#include <optional>
#include <set>
#include <thread>

#include "AgentProgram.h"
#include "support/XServer.h"

// The agent as a process, ended while windows are asked for.

namespace {

using namespace std::chrono_literals;

class AgentEndTest : public AgentProgramTest {
 protected:
    AgentEndTest() { environment["DISPLAY"] = display.display(); }

    // A launch of the program as the desktop makes it for a file.
    std::unique_ptr<fake::ChildProcess> ask(const std::string& path) const {
        return std::make_unique<fake::ChildProcess>(
            std::vector<std::string>{program, "tessarin-scheme://showProperties?path=" + path}, environment,
            folder.path());
    }
    // Looks which properties windows are on the screen, and keeps those that ever were.
    std::size_t look() {
        fake::ChildProcess list({"xwininfo", "-root", "-tree", "-display", display.display()});
        std::size_t now = 0;
        while (const auto line = list.readLine()) {
            if (line->find("\"Tessarin Properties\"") != std::string::npos) {
                seen.insert(line->substr(0, line->find(" \"")));
                ++now;
            }
        }
        return now;
    }
    template <typename Condition>
    bool lookUntil(Condition condition) {
        return WaitUntil([&] {
            look();
            return condition();
        });
    }

    fake::XServer display;
    std::set<std::string> seen;
};

TEST_F(AgentEndTest, AWindowThatIsAskedForWhileTheAgentEndsOpensOnceWhateverTheMoment) {
    for (const auto moment : {0ms, 5ms, 20ms, 50ms, 100ms, 200ms, 400ms}) {
        removeLog();
        seen.clear();
        const auto first = start();
        ASSERT_TRUE(WaitUntil([this] { return pauses(); }));
        const auto asker = ask("/tmp/a");
        std::this_thread::sleep_for(moment);  // what they have come to is left to chance
        first->signal(SIGTERM);
        ASSERT_TRUE(lookUntil([this] { return !seen.empty(); })) << moment.count();
        std::optional<int> code;
        ASSERT_TRUE(lookUntil([&] { return (code = first->wait(0ms)).has_value(); }));
        EXPECT_EQ(code, 0);
        // The launch has handed its request over, or is the agent with the window now.
        if (look() == 0) {
            EXPECT_EQ(asker->wait(kPatience), 0) << moment.count();
        } else {
            End(*asker);
        }
        EXPECT_EQ(seen.size(), 1U) << moment.count();
    }
}

TEST_F(AgentEndTest, ARequestThatTheAgentHasNotLookedAtAtItsEndIsTheAskersAgain) {
    const auto first = start();
    ASSERT_TRUE(WaitUntil([this] { return pauses(); }));
    first->signal(SIGSTOP);
    std::vector<std::unique_ptr<fake::ChildProcess>> askers;
    for (const char* path : {"/tmp/1", "/tmp/2"}) {
        askers.push_back(ask(path));
        // It has found the first, and waits for it.
        ASSERT_TRUE(WaitUntil([&] { return Handles(askers.back()->pid(), SIGTERM); }));
        ASSERT_TRUE(WaitUntil([&] { return !Handles(askers.back()->pid(), SIGTERM); }));
    }
    first->signal(SIGTERM);
    first->signal(SIGCONT);
    ASSERT_TRUE(lookUntil([this] { return seen.size() == 2; }));
    EXPECT_EQ(first->wait(kPatience), 0);
}

TEST_F(AgentEndTest, AWindowThatHasJustOpenedStandsForASecond) {
    const auto first = start();
    ASSERT_TRUE(WaitUntil([this] { return pauses(); }));
    const auto asker = ask("/tmp/a");
    EXPECT_EQ(asker->wait(kPatience), 0);
    const auto begin = std::chrono::steady_clock::now();
    first->signal(SIGTERM);
    EXPECT_GE(look(), 1U);
    EXPECT_EQ(first->wait(kPatience), 0);
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 500ms);
}

}  // namespace
