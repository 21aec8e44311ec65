#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "FinderExtensionClientFixture.h"

// What the client of the Finder extension service answers when the service does not, or not in time.
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

const auto kAllOff = UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", false),
                                          Pair("agentIconDisable", false));

// What each request returns when there is no answer, and how long it waited.
void ExpectNeutralAnswers(cmn::FinderExtensionXPCClient& client, fake::Dispatch& dispatch) {
    auto before = dispatch.now();
    const auto waited = [&] { return dispatch.now() - std::exchange(before, dispatch.now()); };
    EXPECT_THAT(client.getFileFilters("/f"), IsEmpty());
    EXPECT_EQ(waited(), 100ms);
    EXPECT_THAT(client.allowedExtensions(), IsEmpty());
    EXPECT_EQ(waited(), 100ms);
    EXPECT_EQ(client.decrypt("/d"), 2);
    EXPECT_EQ(waited(), 100ms);
    EXPECT_FALSE(client.checkFullDiskAccess());
    EXPECT_EQ(waited(), 100ms);
    EXPECT_THAT(client.getUIVisibilityStatuses(), kAllOff);
    EXPECT_EQ(waited(), 100ms);
}

class NeutralAnswersTest : public FinderExtensionXPCClientTest {
 protected:
    NeutralAnswersTest() {
        service.records = {{{"Name", "a"}}};
        service.extensions = {"txt"};
        service.visibility = {{"menuStatus", true}, {"iconsStatus", true}, {"agentIconDisable", true}};
    }
};

TEST_F(NeutralAnswersTest, AreReturnedAfter100MillisecondsWithoutAService) {
    service.present = false;
    const auto client = connectedClient();
    ExpectNeutralAnswers(*client, *dispatch);
    EXPECT_THAT(systemLog.lines(), Contains("Failed to get remote object -- description").Times(5));
}

TEST_F(NeutralAnswersTest, AreReturnedWithoutAConnection) {
    const auto client = makeClient();
    ExpectNeutralAnswers(*client, *dispatch);
    client->checkEncryptionStatus("/e");
    client->sendLogMessage("text", "Info");
    EXPECT_THAT(service.messages(), IsEmpty());
}

TEST_F(NeutralAnswersTest, AreReturnedWhenTheServiceIsNotRootsThoughItMustBe) {
    fake::LogCapture log;
    const auto client = makeClient(cmn::ServiceOwners::root);
    for (const auto owner : {std::optional<cmn::XPCPeer>(), std::optional(cmn::XPCPeer{.userID = 4711})}) {
        service.transport()->service = owner;
        client->connect();
        dispatch->runUntilIdle();
        EXPECT_FALSE(client->connected());
        ExpectNeutralAnswers(*client, *dispatch);
        client->checkEncryptionStatus("/e");
        client->sendLogMessage("text", "Info");
    }
    EXPECT_THAT(service.messages(), ElementsAre("version", "version")) << "of the validations";
    EXPECT_EQ(
        log.count("The service com.tessarin.FinderExtension is run by the user with the id 4711 and not "
                  "by root, so it is not used"),
        1U);
    service.transport()->service = cmn::XPCPeer{.userID = 0};
    client->connect();
    dispatch->runUntilIdle();
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(client->getFileFilters("/f"), service.records);
}

TEST_F(NeutralAnswersTest, AreReturnedWhenTheVersionIsNotAnswered) {
    service.answersVersion = false;
    const auto client = connectedClient();
    ExpectNeutralAnswers(*client, *dispatch);
    EXPECT_THAT(service.messages(), Contains("version").Times(testing::Ge(5)));
    EXPECT_EQ(service.messages().size(),
              static_cast<std::size_t>(std::ranges::count(service.messages(), "version")))
        << "the real request is made in the reply to the version only";
}

TEST_F(NeutralAnswersTest, AreReturnedWhenOnlyTheVersionIsAnswered) {
    service.answersRequests = false;
    const auto client = connectedClient();
    ExpectNeutralAnswers(*client, *dispatch);
}

TEST_F(NeutralAnswersTest, AreReturnedWhenTheRealAnswerTakes200Milliseconds) {
    service.requestDelay = 200ms;
    const auto client = connectedClient();
    ExpectNeutralAnswers(*client, *dispatch);
}

TEST_F(NeutralAnswersTest, AreReturnedWhenTheRealAnswerTakesAMillisecondTooLongOrTenSeconds) {
    for (const auto delay : {101ms, 10'000ms}) {
        service.requestDelay = delay;
        const auto client = connectedClient();
        ExpectNeutralAnswers(*client, *dispatch);
        dispatch->advance(1min);  // the late answers do no harm
        EXPECT_TRUE(client->connected());
    }
}

TEST_F(NeutralAnswersTest, AreNotReturnedWhenTheRealAnswerIsAMillisecondEarly) {
    service.requestDelay = 99ms;
    const auto client = connectedClient();
    EXPECT_EQ(client->getFileFilters("/f"), service.records);
    EXPECT_EQ(client->decrypt("/d"), 0);
    EXPECT_EQ(dispatch->now(), 2 * 99ms);
}

TEST_F(NeutralAnswersTest, AreReturnedWhenBothRoundTripsTogetherTakeMoreThan100Milliseconds) {
    service.versionDelay = 60ms;
    service.requestDelay = 60ms;
    const auto client = connectedClient();
    ExpectNeutralAnswers(*client, *dispatch);
}

TEST_F(NeutralAnswersTest, AreNotReturnedWhenBothRoundTripsTogetherAreInTime) {
    service.versionDelay = 50ms;
    service.requestDelay = 49ms;
    const auto client = connectedClient();
    EXPECT_EQ(client->getFileFilters("/f"), service.records);
    EXPECT_EQ(client->allowedExtensions(), service.extensions);
    EXPECT_EQ(client->decrypt("/d"), 0);
    EXPECT_TRUE(client->checkFullDiskAccess());
    EXPECT_EQ(client->getUIVisibilityStatuses(), service.visibility);
    EXPECT_EQ(dispatch->now(), 5 * 99ms);
}

}  // namespace
