#include <QDBusArgument>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "CtlWorld.h"
#include "support/Environment.h"
#include "support/Recorder.h"
#include "support/WaitFor.h"
#include "useragent/AgentNames.h"
#include "useragent/PropertiesURL.h"

namespace {

namespace fs = std::filesystem;
using fake::CtlRun;
using testing::HasSubstr;

class OpenCommandTest : public fake::CtlWorld {
 protected:
    // A running agent that answers so.
    std::unique_ptr<fake::RawPeer> agent(QDBusMessage (*answer)(const QDBusMessage&)) {
        auto peer = std::make_unique<fake::RawPeer>(
            session.address(), [this, answer](const QDBusMessage& call, QDBusConnection connection) {
                EXPECT_EQ(call.path(), "/com/tessarin/TessarinUserAgent");
                EXPECT_EQ(call.interface(), "org.freedesktop.Application");
                EXPECT_EQ(call.member(), "Open");
                urls.add(call.arguments().value(0).toStringList().join(' ').toStdString());
                tokens.add(qdbus_cast<QVariantMap>(call.arguments().value(1))
                               .value("activation-token")
                               .toString()
                               .toStdString());
                if (const QDBusMessage message = answer(call);
                    message.type() != QDBusMessage::InvalidMessage) {
                    connection.send(message);
                }
            });
        EXPECT_TRUE(peer->own(useragent::kApplicationName));
        return peer;
    }
    // What is started in the agent's place; its argument is in the file "argument".
    void install(const std::string& script) const {
        fs::create_directories(surroundings.agent.parent_path());
        std::ofstream(surroundings.agent) << "#!/bin/sh\nprintf %s \"$1\" >" << (folder / "argument") << "\n"
                                          << script << "\n";
        fs::permissions(surroundings.agent, fs::perms::owner_all);
    }
    std::string argument() const {
        std::ostringstream text;
        text << std::ifstream(folder / "argument").rdbuf();
        return text.str();
    }
    static QDBusMessage taken(const QDBusMessage& call) { return call.createReply(); }

    fake::Recorder<std::string> urls;
    fake::Recorder<std::string> tokens;
};

TEST_F(OpenCommandTest, HandsTheFileOverToTheRunningAgent) {
    const fake::Environment token("XDG_ACTIVATION_TOKEN", "token-1");
    const auto peer = agent(taken);
    const CtlRun run = this->run({"open", "/tmp/a b\xE9%.txt"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(urls.all(),
                testing::ElementsAre("tessarin-scheme://showProperties?path=/tmp/a%20b%E9%25.txt"));
    EXPECT_THAT(tokens.all(), testing::ElementsAre("token-1"));
}

TEST_F(OpenCommandTest, OpensAPathThatIsRelativeToTheFolderOfTheMoment) {
    const auto peer = agent(taken);
    EXPECT_EQ(run({"open", "some file"}).code, 0);
    const auto request = useragent::ParsePropertiesURL(urls.all().at(0));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->path, (fs::current_path() / "some file").string());
}

TEST_F(OpenCommandTest, SaysWhyTheAgentDoesNotTakeIt) {
    const auto peer = agent([](const QDBusMessage& call) {
        return call.createErrorReply("org.freedesktop.DBus.Error.LimitsExceeded", "1 of 1 URLs are dropped");
    });
    const CtlRun run = this->run({"open", "/a"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "tessarinctl: The agent answers with an error: 1 of 1 URLs are dropped\n");
}

TEST_F(OpenCommandTest, GivesAnAgentThatIsSilentUpAndStartsNoOther) {
    hurry();
    install("exit 0");
    const auto peer = agent([](const QDBusMessage&) { return QDBusMessage(); });
    const CtlRun run = this->run({"open", "/a"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "tessarinctl: The agent does not answer\n");
    EXPECT_FALSE(fs::exists(folder / "argument"));
}

TEST_F(OpenCommandTest, StartsAnAgentWhenNoneRunsOrTheOneIsLeaving) {
    install("exit 0");
    const CtlRun absent = run({"open", "/a"});
    EXPECT_EQ(absent.code, 0) << absent.err;
    EXPECT_EQ(argument(), "tessarin-scheme://showProperties?path=/a");
    const auto leaving = agent([](const QDBusMessage& call) {
        return call.createErrorReply("org.freedesktop.DBus.Error.Failed", "the agent is not running");
    });
    EXPECT_EQ(run({"open", "/b"}).code, 0);
    EXPECT_EQ(argument(), "tessarin-scheme://showProperties?path=/b");
}

TEST_F(OpenCommandTest, IsDoneWhenTheStartedAgentHasItsName) {
    install("exec sleep 20");
    fake::RawPeer started(session.address());
    std::thread later([&] {
        EXPECT_TRUE(fake::WaitInHandler([this] { return fs::exists(folder / "argument"); }));
        EXPECT_TRUE(started.own(useragent::kApplicationName));
    });
    const CtlRun run = this->run({"open", "/a"});
    later.join();
    EXPECT_EQ(run.code, 0) << run.err;
}

TEST_F(OpenCommandTest, SaysThatTheAgentCannotBeStarted) {
    const CtlRun absent = run({"open", "/a"});
    EXPECT_EQ(absent.code, 1);
    EXPECT_THAT(absent.err, HasSubstr("The agent cannot be started: " + surroundings.agent.string()));
    install("exit 3");
    const CtlRun failing = run({"open", "/a"});
    EXPECT_EQ(failing.code, 1);
    EXPECT_THAT(failing.err, HasSubstr("it ended with 3"));
    hurry();
    install("exec sleep 5");
    const CtlRun slow = run({"open", "/a"});
    EXPECT_EQ(slow.code, 1);
    EXPECT_THAT(slow.err, HasSubstr("is not there yet"));
}

TEST_F(OpenCommandTest, StartsNothingWithoutASessionBus) {
    install("exit 0");
    surroundings.sessionBus = "unix:path=" + (folder / "nothing").string();
    const CtlRun run = this->run({"open", "/a"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("There is no session bus to ask: "));
    EXPECT_FALSE(fs::exists(folder / "argument"));
}

}  // namespace
