#include <filesystem>
#include <fstream>

#include "CtlWorld.h"
#include "common/LogOutput.h"
#include "common/LogRing.h"
#include "useragent/AgentNames.h"

namespace {

namespace fs = std::filesystem;
using fake::CtlRun;

class LogsCommandTest : public fake::CtlWorld {
 protected:
    LogsCommandTest() { fs::create_directories(surroundings.userLogs); }

    fs::path file(int index) const {
        return surroundings.userLogs / ("com.tessarin.UserAgent_" + std::to_string(index) + ".log");
    }
    // `age` counts back from now.
    static void write(const fs::path& path, const std::string& text, std::chrono::seconds age) {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
    }
    // `logs -f`: before each look `step` is called with the number of those before; false ends it.
    CtlRun follow(const std::function<bool(int)>& step) const {
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        int steps = 0;
        ctl::Console console{in, out, err, 0, [&] { return step(steps++); }};
        const int code = ctl::RunCommandLine({"logs", "-f"}, ctl::Commands(), surroundings, console);
        return {code, out.str(), err.str()};
    }
};

TEST_F(LogsCommandTest, PrintsTheFilesInTheOrderInWhichTheyWereWritten) {
    write(file(0), "newest\n", std::chrono::seconds(1));
    write(file(1), "oldest\n", std::chrono::seconds(30));
    write(file(2), "middle\n", std::chrono::seconds(20));
    const CtlRun run = this->run({"logs"});
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out, "oldest\nmiddle\nnewest\n");
}

TEST_F(LogsCommandTest, PrintsTheLogBesideTheBundleWhenThatWasWrittenLast) {
    write(file(0), "user's\n", std::chrono::seconds(30));
    const fs::path beside = useragent::LogStem(surroundings.agent).string() + "_0.log";
    write(beside, "beside\n", std::chrono::seconds(1));
    EXPECT_EQ(run({"logs"}).out, "beside\n");
    fs::last_write_time(beside, fs::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_EQ(run({"logs"}).out, "user's\n");
}

TEST_F(LogsCommandTest, SaysThatThereIsNoLog) {
    const CtlRun run = this->run({"logs"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "There is no log of the agent\n");
    surroundings.userLogs.clear();
    EXPECT_EQ(this->run({"logs"}).code, 1);
}

TEST_F(LogsCommandTest, WritesNoControlsToATerminalAndEveryByteToAFile) {
    write(file(0), "a\x1b[2J\nunended\x07", std::chrono::seconds(1));
    EXPECT_EQ(run({"logs"}).out, "a\x1b[2J\nunended\x07");
    EXPECT_EQ(run({"logs"}, 80).out, "a\\x1b[2J\nunended\\x07");
}

TEST_F(LogsCommandTest, PrintsALongLogWholeAlsoOnATerminal) {
    std::string text;
    for (int line = 0; line < 20'000; ++line) {
        text += "line " + std::to_string(line) + '\n';
    }
    write(file(0), text, std::chrono::seconds(1));
    EXPECT_EQ(run({"logs"}).out, text);
    EXPECT_EQ(run({"logs"}, 80).out, text);
}

// The ring that the agent writes.
TEST_F(LogsCommandTest, FollowsWhatIsWrittenThroughTheRing) {
    cmn::LogOutput output;
    cmn::LogRing ring(output);
    ring.setMaxSize(20);
    ring.setStem((surroundings.userLogs / "com.tessarin.UserAgent").string());
    std::string written;
    const auto add = [&](int number) {
        const std::string line = "the line number " + std::to_string(number) + '\n';
        ring.write("\n" + line);
        written += line;
        // As if a moment had passed: the clock of files is a coarse one.
        fs::last_write_time(ring.name(), fs::file_time_type::clock::now() + std::chrono::seconds(number));
    };
    add(0);
    const CtlRun run = follow([&](int step) {
        if (step % 2 == 0 && step < 12) {
            add(2 * step + 1);  // once in the file that is read and once in the next
            add(2 * step + 2);
        }
        return step < 12;
    });
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out, written);
    EXPECT_TRUE(fs::exists(file(1)));
}

TEST_F(LogsCommandTest, GoesOnWhenALogComesBack) {
    write(file(0), "before\n", std::chrono::seconds(9));
    const CtlRun run = follow([&](int step) {
        if (step == 0) {
            fs::remove(file(0));
        } else if (step == 2) {
            write(file(0), "after\n", std::chrono::seconds(1));
        }
        return step < 4;
    });
    EXPECT_EQ(run.out, "before\nafter\n");
}

}  // namespace
