#include <sys/stat.h>

#include "AgentProgram.h"

// Where the log of an installed agent lies: its folder belongs to somebody else.

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;

constexpr const char* kLogFile = "com.tessarin.UserAgent_0.log";
constexpr const char* kRunning = "CGWindowListCopyWindowInfo -- failed.";

class AgentLogTest : public AgentProgramTest {
 protected:
    struct User {
        std::string number;
        fs::path home;
    };

    AgentLogTest() {
        fs::permissions(folder.path(), kReadable);
        environment["XDG_STATE_HOME"] = "";
    }
    ~AgentLogTest() override { fs::permissions(folder.path(), fs::perms::owner_all); }

    // One who may read the agent and write nothing but his home.
    User user(unsigned which) const {
        const bool isRoot = ::getuid() == 0;
        const unsigned number = 20'000 + (static_cast<unsigned>(::getpid()) * 2 + which) % 30'000;
        User user{isRoot ? std::to_string(number) : "", fs::path(home()) / ("user " + std::to_string(which))};
        fs::create_directories(user.home);
        fs::permissions(user.home, fs::perms::owner_all);
        fs::permissions(home(), kReadable);
        if (isRoot) {
            EXPECT_EQ(::chown(user.home.c_str(), number, number), 0);
        }
        return user;
    }
    // Starts his agent from a folder that he cannot write, after `prepare`, a script that knows his home.
    std::unique_ptr<fake::ChildProcess> startAs(const User& user, const std::string& prepare = "") {
        environment["HOME"] = user.home;
        environment["XDG_RUNTIME_DIR"] = user.home;
        std::vector<std::string> command;
        if (!prepare.empty()) {
            command = {"unshare", "--mount", "sh", "-ec", prepare + R"(; exec "$@")", "sh"};
        }
        if (!user.number.empty()) {
            const std::vector<std::string> become{"setpriv", "--reuid=" + user.number,
                                                  "--regid=" + user.number, "--clear-groups"};
            command.insert(command.end(), become.begin(), become.end());
        }
        return start(command);
    }
    static fs::path logOf(const User& user) { return user.home / ".local/state/tessarin" / kLogFile; }
    static bool runs(const User& user) {
        return testing::Value(fake::ReadLines(logOf(user)), Contains(HasSubstr(kRunning)));
    }
    static bool tellsThatItRuns(fake::ChildProcess& agent) {
        return WaitUntil([&] { return agent.errors().find(kRunning) != std::string::npos; });
    }
    void expectNothingBesideTheBundle() const {
        EXPECT_FALSE(fs::exists(folder / kLogFile));
        EXPECT_FALSE(fs::exists(folder / "_0.log"));
    }

    static constexpr fs::perms kReadable = fs::perms::owner_read | fs::perms::owner_exec |
                                           fs::perms::group_read | fs::perms::group_exec |
                                           fs::perms::others_read | fs::perms::others_exec;
};

TEST_F(AgentLogTest, IsInTheUsersStateFolderWhereTheBundleIsNotHis) {
    bus.openToOthers();
    const User one = user(1);
    const auto agent = startAs(one);
    ASSERT_TRUE(WaitUntil([&] { return runs(one); })) << agent->errors();
    End(*agent);
    EXPECT_THAT(fake::ReadLines(logOf(one)), Contains(HasSubstr("Starting TessarinUserAgent")));
    for (const fs::path& made : {logOf(one).parent_path(), logOf(one)}) {
        struct stat status {};
        ASSERT_EQ(::stat(made.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 077U, 0u) << made;
    }
    EXPECT_EQ(agent->errors(), "");
    expectNothingBesideTheBundle();
}

TEST_F(AgentLogTest, IsEachUsersOwn) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs two users, whom only root can play";
    }
    const fake::PrivateBus otherBus;
    bus.openToOthers();
    otherBus.openToOthers();
    const User one = user(1);
    const User other = user(2);
    const auto agent = startAs(one);
    environment["DBUS_SESSION_BUS_ADDRESS"] = otherBus.address();
    const auto otherAgent = startAs(other);
    ASSERT_TRUE(WaitUntil([&] { return runs(one) && runs(other); }))
        << agent->errors() << otherAgent->errors();
    End(*agent);
    End(*otherAgent);
    expectNothingBesideTheBundle();
}

TEST_F(AgentLogTest, GoesToTheErrorStreamWhereTheHomeIsReadOnly) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs a file system of its own, which only root can mount";
    }
    bus.openToOthers();
    const User one = user(1);
    const fs::path elsewhere = folder / "working-directory";
    fs::create_directory(elsewhere);
    fs::permissions(elsewhere, fs::perms::all);
    const auto agent = startAs(
        one, R"(mount --bind "$HOME" "$HOME"; mount -o remount,bind,ro "$HOME"; cd )" + elsewhere.string());
    ASSERT_TRUE(tellsThatItRuns(*agent)) << agent->errors();
    End(*agent);
    EXPECT_THAT(agent->errors(),
                HasSubstr("The log cannot be written to " + (folder / kLogFile).string() +
                          ", nor to the user's folder for logs, so it goes to the standard error stream\n"));
    EXPECT_TRUE(fs::is_empty(one.home));
    EXPECT_TRUE(fs::is_empty(elsewhere)) << "never into the working directory";
    expectNothingBesideTheBundle();
}

TEST_F(AgentLogTest, GoesToTheErrorStreamWhereTheHomeIsFull) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs a file system of its own, which only root can mount";
    }
    bus.openToOthers();
    const User one = user(1);
    const auto agent = startAs(one, "mount -t tmpfs -o size=16k,mode=700,uid=" + one.number +
                                        R"( none "$HOME"; head -c 1000000 /dev/zero >"$HOME/all" || true)");
    ASSERT_TRUE(tellsThatItRuns(*agent)) << agent->errors();
    End(*agent);
    EXPECT_THAT(agent->errors(), HasSubstr("Starting TessarinUserAgent"));
    expectNothingBesideTheBundle();
}

}  // namespace
