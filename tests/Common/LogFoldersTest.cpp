#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "OwnProcess.h"
#include "OwnSystem.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/log.h"
#include "impl_linux/journal.h"
#include "impl_posix/user_database.h"
#include "support/LogCapture.h"

// What the system has for logs: folders, and a journal.

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class LogFoldersTest : public testing::Test {
 protected:
    // The user's folder where the environment says so; a null value is none.
    static std::string userFolder(const char* stateHome, const char* home) {
        return fake::AnswerInChild([=] {
            stateHome != nullptr ? setenv("XDG_STATE_HOME", stateHome, 1) : unsetenv("XDG_STATE_HOME");
            home != nullptr ? setenv("HOME", home, 1) : unsetenv("HOME");
            return cmn::GetUserLogFolder();
        });
    }

    const fake::TemporaryFolder folder_;
};

TEST_F(LogFoldersTest, TheUsersIsThatOfTheDesktopsState) {
    EXPECT_EQ(userFolder("/somewhere/state", folder_.path().c_str()), "/somewhere/state/tessarin");
}

TEST_F(LogFoldersTest, TheUsersIsElseBelowHisHome) {
    const std::string expected = folder_ / ".local/state/tessarin";
    EXPECT_EQ(userFolder(nullptr, folder_.path().c_str()), expected);
    EXPECT_EQ(userFolder("", folder_.path().c_str()), expected);
    EXPECT_EQ(userFolder("relative", folder_.path().c_str()), expected) << "such a one is invalid";
    EXPECT_FALSE(fs::exists(expected)) << "asking makes nothing";
}

TEST_F(LogFoldersTest, TheUsersHomeIsElseThatOfTheUserDatabase) {
    const auto user = cmn::FindUser(geteuid());
    const bool hasHome = user && fs::is_directory(user->home);
    EXPECT_EQ(userFolder(nullptr, nullptr), hasHome ? user->home + "/.local/state/tessarin" : "");
}

TEST_F(LogFoldersTest, AUserWithoutAHomeHasNone) {
    EXPECT_EQ(userFolder(nullptr, (folder_ / "gone").c_str()), "");
}

TEST_F(LogFoldersTest, TheSystemsIsThereOnceItIsInstalled) {
    if (!fake::OwnSystem::allowed())
        GTEST_SKIP() << "This user may not have a system of its own.";
    const auto answer = [](bool installed) {
        return fake::AnswerInChild([=] {
            fake::OwnSystem::enter();
            fake::OwnSystem::hide("/var/log");
            if (installed)
                fs::create_directory("/var/log/tessarin");
            return cmn::GetSystemLogFolder();
        });
    };
    EXPECT_EQ(answer(true), "/var/log/tessarin");
    EXPECT_EQ(answer(false), "");
}

// A journal's socket.
class Journal {
 public:
    explicit Journal(const fs::path& path) : descriptor_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~Journal() { close(descriptor_); }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // The next message; "" when there is none.
    std::string next() const {
        std::string message(1 << 16, '\0');
        const auto size = recv(descriptor_, message.data(), message.size(), MSG_DONTWAIT);
        message.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return message;
    }

 private:
    const int descriptor_;
};

class JournalTest : public testing::Test {
 protected:
    const fake::TemporaryFolder folder_;
    const std::string socket_ = folder_ / "socket";
};

TEST_F(JournalTest, GetsAnErrorWithItsProgramAndItsTextWhole) {
    const Journal journal(socket_);
    cmn::SendToJournal(socket_.c_str(), "Program", "one\nPRIORITY=7");
    const std::string length("\x0e\0\0\0\0\0\0\0", 8);
    EXPECT_EQ(journal.next(),
              "PRIORITY=3\nSYSLOG_IDENTIFIER=Program\nMESSAGE\n" + length + "one\nPRIORITY=7\n");
    EXPECT_EQ(journal.next(), "");
}

TEST_F(JournalTest, GetsTheBeginningOfATextThatIsTooLong) {
    const Journal journal(socket_);
    cmn::SendToJournal(socket_.c_str(), "Program", std::string(1 << 20, 'x'));
    EXPECT_THAT(journal.next(), AllOf(HasSubstr(std::string(1'000, 'x')), EndsWith("x\n")));
}

TEST_F(JournalTest, ThatIsNotThereOrHangsHoldsUpNobody) {
    cmn::SendToJournal(socket_.c_str(), "Program", "nobody reads this");
    cmn::SendToJournal(("/" + std::string(200, 'x')).c_str(), "Program", "nor this");
    const Journal journal(socket_);
    std::size_t taken = 0;
    // Many times what a socket holds. With a function that waits the test would not end.
    for (int i = 0; i < 10'000; ++i)
        cmn::SendToJournal(socket_.c_str(), "Program", std::string(1'000, 'x'));
    while (!journal.next().empty())
        ++taken;
    EXPECT_GT(taken, 0u);
    EXPECT_LT(taken, 10'000u);
}

TEST_F(JournalTest, GetsTheErrorsOfTheLogAndNothingElse) {
    if (!fake::OwnSystem::allowed())
        GTEST_SKIP() << "This user may not have a system of its own.";
    const auto answer = [this](bool on) {
        return fake::AnswerInChild([&] {
            fake::OwnSystem::enter();
            fake::OwnSystem::hide("/run");
            fs::create_directories("/run/systemd/journal");
            const Journal journal("/run/systemd/journal/socket");
            SetLogPath((folder_ / "log").c_str());
            SetLogJournal(on);
            SetLogLevel(LogLevel::Trace);
            LogMessage("bare");
            TLOG_WARN("a warning");
            TLOG_ERROR("an {}", "error");
            LogFull(LogLevel::Error, "dir/file.cpp", 7, "function", "another");
            SetLogLevel(LogLevel::Silent);
            TLOG_ERROR("one that the log does not have either");
            std::string messages;
            for (int i = 0; i < 3; ++i)
                messages += journal.next() + "|";
            return messages;
        });
    };
    EXPECT_THAT(answer(true), AllOf(StartsWith("PRIORITY=3\nSYSLOG_IDENTIFIER=CommonTest\nMESSAGE\n"),
                                    HasSubstr(" -- an error\n|PRIORITY=3\n"),
                                    EndsWith("file.cpp:7 function -- another\n||")));
    EXPECT_EQ(answer(false), "|||");
}

}  // namespace
