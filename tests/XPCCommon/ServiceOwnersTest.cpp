#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "UserAgentClientFixture.h"

// Whose the service is that the agent reports to.
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::SizeIs;
using testing::StartsWith;
using Queue = fake::Dispatch::Queue;

constexpr cmn::XPCPeer kRoot{.userID = 0, .processID = 1};
constexpr cmn::XPCPeer kSomebody{.userID = 4711, .processID = 2};

class ServiceOwnersTest : public UserAgentXPCClientTest {
 protected:
    static constexpr auto kRootAlone = cmn::ServiceOwners::root;

    // The service gets another owner.
    void changeOwner(const cmn::XPCPeer& owner) {
        daemon.transport()->service = owner;
        daemon.transport()->lastConnection()->sendInterruption();
        dispatch->advance(3s);
    }
    void expectUnused(cmn::UserAgentObjCXPCClient& client) {
        const auto extractors = daemon.extractors.size();
        const auto reports = daemon.reports.all().size();
        dispatch->advance(10s);
        client.sendURL("u", "Safari", 1);
        EXPECT_FALSE(client.connected());
        EXPECT_THAT(daemon.extractors, SizeIs(extractors));
        EXPECT_THAT(daemon.reports.all(), SizeIs(reports));
    }
};

TEST_F(ServiceOwnersTest, AServiceThatIsNotRootsIsToldOnceAndUsed) {
    daemon.transport()->service = kSomebody;
    const auto client = connectedClient();
    const auto lines = log.linesWith("not by root");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0],
                AllOf(StartsWith("[ WARN]"),
                      testing::HasSubstr("The service com.tessarin.UserAgent is run by the user with "
                                         "the id 4711 and not by root: that user gets")));
    changeOwner(kSomebody);
    EXPECT_EQ(log.count("not by root"), 1U);
    client->sendURL("u", "Safari", 1);
    EXPECT_TRUE(client->connected());
    EXPECT_THAT(daemon.extractors, SizeIs(2));
    EXPECT_THAT(daemon.reports.all(), SizeIs(1));
}

TEST_F(ServiceOwnersTest, NothingIsToldOfRootsServiceAndWhenTheOwnerIsNotKnown) {
    const auto client = connectedClient();
    changeOwner(kRoot);
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(log.count("not by root"), 0U);
}

TEST_F(ServiceOwnersTest, NothingIsToldBeforeTheServiceAnswers) {
    daemon.transport()->service = kSomebody;
    daemon.answersVersion = false;
    const auto client = connectedClient();
    EXPECT_EQ(log.count("not by root"), 0U);
    daemon.versionReplies.at(0)("1.0");
    EXPECT_EQ(log.count("not by root"), 1U);
}

TEST_F(ServiceOwnersTest, WhereRootAloneIsAllowedAnothersServiceCountsAsAbsent) {
    daemon.transport()->service = kSomebody;
    const auto client = connectedClient(kRootAlone);
    const auto lines = log.linesWith("not by root");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0],
                AllOf(StartsWith("[ WARN]"), testing::HasSubstr("4711 and not by root, so it is not used")));
    expectUnused(*client);
    EXPECT_THAT(daemon.extractors, SizeIs(0));
    EXPECT_EQ(log.count("Failed to get remote object -- %s"), 1U) << "as without a connection";
}

TEST_F(ServiceOwnersTest, WhereRootAloneIsAllowedAServiceOfNobodyKnownCountsAsAbsent) {
    const auto client = connectedClient(kRootAlone);
    expectUnused(*client);
    EXPECT_THAT(daemon.extractors, SizeIs(0));
}

TEST_F(ServiceOwnersTest, WhereRootAloneIsAllowedRootsServiceIsUsedOnceItHasAnswered) {
    daemon.answersVersion = false;
    const auto client = connectedClient(kRootAlone);
    EXPECT_THAT(daemon.extractors, SizeIs(0)) << "nobody is known yet";
    daemon.transport()->lastConnection()->setPeer(kRoot);
    daemon.versionReplies.at(0)("1.0");
    dispatch->runUntilIdle();
    EXPECT_TRUE(client->connected());
    EXPECT_THAT(daemon.extractors, SizeIs(1));
    EXPECT_THAT(daemon.extractorQueues, ElementsAre(Queue::main));
    client->sendURL("u", "Safari", 1);
    EXPECT_THAT(daemon.reports.all(), SizeIs(1));
}

TEST_F(ServiceOwnersTest, WhereRootAloneIsAllowedTheOwnerIsLookedAtBeforeEachReport) {
    daemon.transport()->service = kRoot;
    const auto client = connectedClient(kRootAlone);
    client->sendURL("u", "Safari", 1);
    daemon.transport()->lastConnection()->setPeer(kSomebody);
    client->sendURL("u", "Safari", 2);
    daemon.transport()->lastConnection()->setPeer(std::nullopt);
    client->sendURL("u", "Safari", 3);
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"u", "Safari", 1}));
}

TEST_F(ServiceOwnersTest, WhereRootAloneIsAllowedTheServiceIsUsedWhileItIsRoots) {
    daemon.transport()->service = kSomebody;
    const auto client = connectedClient(kRootAlone);
    changeOwner(kRoot);
    EXPECT_TRUE(client->connected());
    EXPECT_THAT(daemon.extractors, SizeIs(1));
    changeOwner(kSomebody);
    expectUnused(*client);
}

}  // namespace
