#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "UserAgentServerFixture.h"
#include "common/SystemUtils.h"

// The user agent service with agents of several users.
namespace {

constexpr std::uint32_t kAlice = 1000;
constexpr std::uint32_t kBob = 1001;

// Agents of several users.
class UserAgentsOfUsersTest : public UserAgentXPCServerTest {
 protected:
    // An agent's connection, with its extractor registered.
    std::shared_ptr<fake::XPCConnection> agentOf(std::uint32_t user,
                                                 const std::shared_ptr<ScriptedExtractor>& itsExtractor) {
        auto agent = transport->lastListener()->connectPeer(cmn::XPCPeer{.userID = user, .processID = 7});
        setExtractor(*agent, itsExtractor);
        return agent;
    }
    static void setExtractor(fake::XPCConnection& agent, std::shared_ptr<cmn::URLExtractor> itsExtractor) {
        agent.deliver<cmn::UserAgentProtocol>([&](auto& service) {
            service.setURLExtractor(std::move(itsExtractor), [](bool accepted) { EXPECT_TRUE(accepted); });
        });
    }
    // Whose extractor is asked.
    std::string asked() {
        alices->asked.clear();
        bobs->asked.clear();
        server->getURL("Safari");
        return std::string(alices->asked.size(), 'a') + std::string(bobs->asked.size(), 'b');
    }

    std::shared_ptr<ScriptedExtractor> alices = extractor;
    std::shared_ptr<ScriptedExtractor> bobs = std::make_shared<ScriptedExtractor>();
    std::optional<cmn::UserId> activeUser;
    std::shared_ptr<cmn::UserAgentObjCXPCServer> server = [this] {
        auto made =
            std::make_shared<cmn::UserAgentObjCXPCServer>(cmn::URLReceivedBlock(), dispatch, transport);
        made->setActiveUser([this] { return activeUser; });
        made->start();
        return made;
    }();
};

TEST_F(UserAgentsOfUsersTest, TheActiveSessionsUserIsAskedFirst) {
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    for (int i = 0; i < 2; ++i) {
        activeUser = kAlice;
        EXPECT_EQ(asked(), "a");
        activeUser = kBob;
        EXPECT_EQ(asked(), "b");
    }
}

TEST_F(UserAgentsOfUsersTest, TheSystemIsAskedWhoIsActive) {
    server->stop();
    server = std::make_shared<cmn::UserAgentObjCXPCServer>(cmn::URLReceivedBlock(), dispatch, transport);
    server->start();
    const auto console = cmn::GetUIDByName(cmn::GetCurrentUserName());
    const auto active = agentOf(console.value_or(kAlice), alices);
    const auto other = agentOf(console.value_or(kAlice) + 1, bobs);
    EXPECT_EQ(asked(), console ? "a" : "b");
}

TEST_F(UserAgentsOfUsersTest, WithoutAnAgentOfTheActiveUserTheOneRegisteredLastIsAsked) {
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    EXPECT_EQ(asked(), "b") << "nobody is active";
    activeUser = 4711;
    EXPECT_EQ(asked(), "b");
    setExtractor(*alice, alices);
    EXPECT_EQ(asked(), "a");
}

TEST_F(UserAgentsOfUsersTest, NobodyRegistersForAnotherUser) {
    activeUser = kAlice;
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    setExtractor(*bob, nullptr);
    EXPECT_EQ(asked(), "a");
    connect()->setURLExtractor(bobs, [](bool) {});
    EXPECT_EQ(asked(), "a") << "a peer that is not known is none of hers";
    connect()->setURLExtractor(nullptr, [](bool) {});
    EXPECT_EQ(asked(), "a");
}

TEST_F(UserAgentsOfUsersTest, WhenOneLeavesTheLastLivingOneIsAsked) {
    activeUser = kBob;
    const auto alice = agentOf(kAlice, alices);
    const auto bob = agentOf(kBob, bobs);
    bob->sendInvalidation();
    EXPECT_EQ(asked(), "a");
    EXPECT_EQ(bobs.use_count(), 1) << "and his is let go";
    alice->sendInvalidation();
    EXPECT_EQ(asked(), "");
    EXPECT_EQ(server->urlExtractor(), nullptr);
}

TEST_F(UserAgentsOfUsersTest, AConnectionThatWasReplacedTakesNothingAlongWhenItEnds) {
    const auto first = agentOf(kAlice, alices);
    const auto second = agentOf(kAlice, bobs);
    first->sendInvalidation();
    EXPECT_EQ(asked(), "b");
    EXPECT_EQ(alices.use_count(), 2) << "the first one's is let go";
}

TEST_F(UserAgentsOfUsersTest, OfTwoSessionsOfAUserTheLastLivingOneIsAsked) {
    activeUser = kAlice;
    const auto first = agentOf(kAlice, alices);
    const auto second = agentOf(kAlice, bobs);
    EXPECT_EQ(asked(), "b");
    second->sendInvalidation();
    EXPECT_EQ(asked(), "a");
}

TEST_F(UserAgentsOfUsersTest, AnInterruptedConnectionKeepsItsExtractor) {
    const auto alice = agentOf(kAlice, alices);
    alice->sendInterruption();
    EXPECT_EQ(asked(), "a");
}

}  // namespace
