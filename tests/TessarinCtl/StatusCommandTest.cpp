#include <fstream>

#include "CtlWorld.h"
#include "support/MuteSocket.h"
#include "useragent/AgentNames.h"
#include "useragent/AgentStatus.h"

namespace {

using fake::CtlRun;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using useragent::AgentStatus;

AgentStatus WellStatus() {
    AgentStatus status;
    status.version = "1.2.3";
    status.pid = 47;
    status.runningForSeconds = 7300;
    status.sessionType = "wayland";
    status.icon = "status area";
    status.services = {{"com.tessarin.UserAgent", true}, {"com.tessarin.FinderExtension", true}};
    status.permissions = {true, true, true};
    status.browsers = {{"Firefox", 11, std::uint64_t{5}, ""}};
    status.lastReport = {"Firefox", 7, ""};
    return status;
}

class StatusCommandTest : public fake::CtlWorld {
 protected:
    std::unique_ptr<fake::RawPeer> agent(const std::string& json) {
        return serve(session, useragent::kApplicationName, [this, json](const QDBusMessage& call) {
            EXPECT_EQ(call.path(), "/com/tessarin/TessarinUserAgent");
            EXPECT_EQ(call.interface(), "com.tessarin.TessarinUserAgent.Status");
            EXPECT_EQ(call.member(), "Get");
            asked.push_back(call.arguments().value(0).toBool());
            return QVariant(QString::fromStdString(json));
        });
    }
    std::unique_ptr<fake::RawPeer> agent(const AgentStatus& status) {
        return agent(cmn::proto::ObjectToJson(status));
    }
    // No agent that can be understood, in either form.
    void expectFailure(const std::string& why) {
        const CtlRun text = run({"status"});
        EXPECT_EQ(text.code, 1);
        EXPECT_EQ(text.err, why + "\n");
        EXPECT_THAT(text.out, IsEmpty());
        const CtlRun json = run({"status", "--json"});
        EXPECT_EQ(json.code, 1);
        const auto document = parse(json.out);
        EXPECT_TRUE(document["agent"].IsNull());
        EXPECT_FALSE(document["allIsWell"].GetBool());
        EXPECT_EQ(document["failure"].GetString(), why);
    }

    std::vector<bool> asked;  // for addresses; read when the command has ended
};

TEST_F(StatusCommandTest, ShowsHowTheAgentIsAndEndsWithZeroWhenAllIsWell) {
    const auto peer = agent(WellStatus());
    const CtlRun run = this->run({"status"});
    EXPECT_EQ(run.code, 0) << run.err;
    for (const char* const line :
         {"Agent                                 running, version 1.2.3, process 47, since 20", " (2 h)\n",
          "Service com.tessarin.UserAgent        reached\n",
          "Service com.tessarin.FinderExtension  reached\n", "Full disk access                      On\n",
          "Accessibility                         On\n", "Finder Extension                      On\n",
          "Browser Firefox                       process 11, address read for 5 s\n",
          "Last report                           7 s ago, from Firefox\n",
          "Icon                                  shown, status area\n",
          "Session                               wayland\n"}) {
        EXPECT_THAT(run.out, HasSubstr(line));
    }
    EXPECT_THAT(asked, testing::ElementsAre(false)) << "addresses are for those who ask for them";
}

TEST_F(StatusCommandTest, ShowsWhatIsNotWellAndEndsWithOne) {
    AgentStatus status = WellStatus();
    status.services[1].reached = false;
    status.permissions = {};
    status.browsers[0].readForSeconds.reset();
    status.lastReport.reset();
    status.icon = "none";
    status.sessionType.clear();
    const auto peer = agent(status);
    const CtlRun run = this->run({"status"});
    EXPECT_EQ(run.code, 1);
    for (const char* const line :
         {"FinderExtension  not reached\n", "Full disk access                      Off\n",
          "Accessibility                         Off\n", "Finder Extension                      Off\n",
          "process 11, address not read\n", "none since the start\n", "not shown\n", "not known\n"}) {
        EXPECT_THAT(run.out, HasSubstr(line));
    }
}

TEST_F(StatusCommandTest, ShowsAddressesOnlyWhenAsked) {
    AgentStatus status = WellStatus();
    status.browsers[0].address = "a.example/\x1b[2J";
    status.lastReport->address = "b.example";
    const auto peer = agent(status);
    const CtlRun run = this->run({"status", "--addresses"});
    EXPECT_THAT(asked, testing::ElementsAre(true));
    EXPECT_THAT(run.out, AllOf(HasSubstr("read for 5 s: a.example/\\x1b[2J\n"),
                               HasSubstr("from Firefox: b.example\n"), Not(HasSubstr("\x1b"))));
}

TEST_F(StatusCommandTest, JsonHasAllThatTheAgentSays) {
    const auto peer = agent(WellStatus());
    const CtlRun run = this->run({"status", "--json"});
    EXPECT_EQ(run.code, 0);
    const auto document = parse(run.out);
    EXPECT_TRUE(document["allIsWell"].GetBool());
    const auto& agent = document["agent"];
    EXPECT_STREQ(agent["version"].GetString(), "1.2.3");
    EXPECT_EQ(agent["browsers"][0]["readForSeconds"].GetInt(), 5);
    EXPECT_TRUE(agent["permissions"]["finderExtension"].GetBool());
    EXPECT_EQ(agent["lastReport"]["secondsAgo"].GetInt(), 7);
}

TEST_F(StatusCommandTest, SaysThatNoAgentRuns) {
    expectFailure("No agent runs in this session");
}

TEST_F(StatusCommandTest, SaysThatThereIsNoBus) {
    surroundings.sessionBus = "";
    expectFailure("There is no session bus to ask: there is no address of such a bus");
}

TEST_F(StatusCommandTest, GivesAnAgentThatIsSilentUp) {
    hurry();
    const auto peer =
        serve(session, useragent::kApplicationName, [](const QDBusMessage&) { return QVariant(); });
    expectFailure("The agent does not answer");
}

TEST_F(StatusCommandTest, GivesABusThatIsSilentUp) {
    hurry();
    const std::string path = folder / "mute";
    const fake::MuteSocket mute(path, true);
    surroundings.sessionBus = "unix:path=" + path;
    const CtlRun run = this->run({"status"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, testing::StartsWith("There is no session bus to ask: "));
}

TEST_F(StatusCommandTest, IsNotWaitedForLongerThanFiveSecondsWhateverHangs) {
    // The bus library takes a second more than it is given when nothing in the process runs any more.
    EXPECT_LT(surroundings.patience.status + std::chrono::seconds(1), std::chrono::milliseconds(5001));
}

TEST_F(StatusCommandTest, SaysThatAnAnswerCannotBeUnderstood) {
    for (const char* const garbage : {"", "no json", "[]", "{\"services\": 7}", "{\"version\": \"1"}) {
        const auto peer = agent(std::string(garbage));
        expectFailure("The agent's answer cannot be understood");
    }
}

TEST_F(StatusCommandTest, SaysThatAnAnswerOfAnotherTypeIsAnError) {
    const auto peer =
        serve(session, useragent::kApplicationName, [](const QDBusMessage&) { return QVariant(7); });
    const CtlRun run = this->run({"status"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, testing::StartsWith("The agent answers with an error: "));
}

}  // namespace
