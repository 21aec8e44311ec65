#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptedFinderExtension.h"
#include "support/FakeDispatch.h"
#include "support/LogCapture.h"
#include "support/SystemLogCapture.h"
#include "xpccommon/FinderExtensionXPCClient.h"

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::UnorderedElementsAre;

const auto kAllOff = UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", false),
                                          Pair("agentIconDisable", false));

class FinderExtensionXPCClientTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::shared_ptr<cmn::FinderExtensionXPCClient> makeClient(
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        return std::make_shared<cmn::FinderExtensionXPCClient>(dispatch, service.transport(), owners);
    }
    // Its validation has not run yet: nothing but what the test asks reaches the service.
    std::shared_ptr<cmn::FinderExtensionXPCClient> connectedClient() {
        auto client = makeClient();
        client->connect();
        return client;
    }
    std::shared_ptr<cmn::FinderExtensionXPCClient> validatedClient() {
        auto client = connectedClient();
        dispatch->runUntilIdle();
        return client;
    }

    fake::SystemLogCapture systemLog;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedFinderExtension service{dispatch};
};

TEST_F(FinderExtensionXPCClientTest, IsAClientOfThePrivilegedService) {
    const auto client = makeClient();
    EXPECT_EQ(client->machServiceName(), "com.tessarin.FinderExtension");
    EXPECT_EQ(service.transport()->connectionsCreated(), 0);
    client->connect();
    EXPECT_EQ(static_cast<unsigned>(service.transport()->lastConnection()->options), 4096U);
    EXPECT_EQ(service.transport()->lastConnection()->machServiceName, "com.tessarin.FinderExtension");
    EXPECT_NE(service.transport()->lastConnection()->remoteObjectInterface(), nullptr);
    EXPECT_EQ(client->connection(), service.transport()->lastConnection());
}

TEST_F(FinderExtensionXPCClientTest, IsConnectedOnceTheVersionWasAnswered) {
    const auto client = connectedClient();
    EXPECT_FALSE(client->connected());
    EXPECT_THAT(service.messages(), IsEmpty()) << "validated on a queue, not by connect itself";
    dispatch->runUntilIdle();
    EXPECT_TRUE(client->connected());
    EXPECT_THAT(service.messages(), ElementsAre("version"));
}

TEST_F(FinderExtensionXPCClientTest, WaitsForTheVersionAtMostOneSecond) {
    service.answersVersion = false;
    const auto client = validatedClient();
    dispatch->advance(1s - 1ns);
    EXPECT_EQ(dispatch->waiting(), 1U);
    dispatch->advance(1ns);
    EXPECT_EQ(dispatch->waiting(), 0U);
    EXPECT_FALSE(client->connected());
}

TEST_F(FinderExtensionXPCClientTest, TheRetryOfTheValidationFindsItsBlockReleasedAndDoesNothing) {
    service.answersVersion = false;
    const auto client = validatedClient();
    dispatch->advance(1s);
    EXPECT_EQ(dispatch->pending(), 1U) << "the retry is due after another second";
    dispatch->advance(1s - 1ns);
    EXPECT_EQ(dispatch->pending(), 1U);
    dispatch->advance(1ns);
    EXPECT_EQ(dispatch->pending(), 0U);
    dispatch->advance(1h);
    EXPECT_THAT(service.messages(), ElementsAre("version"));
    EXPECT_FALSE(client->connected());
}

TEST_F(FinderExtensionXPCClientTest, AVersionThatIsAnsweredTooLateStillConnects) {
    service.versionDelay = 10s;
    const auto client = validatedClient();
    dispatch->advance(10s - 1ns);
    EXPECT_FALSE(client->connected());
    dispatch->advance(1ns);
    EXPECT_TRUE(client->connected());
}

TEST_F(FinderExtensionXPCClientTest, AValidationThatWaitsDoesNotKeepTheClientAlive) {
    service.answersVersion = false;
    auto client = validatedClient();
    const std::weak_ptr<cmn::FinderExtensionXPCClient> weakClient = client;
    client.reset();
    EXPECT_TRUE(weakClient.expired());
    dispatch->advance(10s);
    EXPECT_EQ(dispatch->pending(), 0U) << "and nothing is scheduled for it";
}

TEST_F(FinderExtensionXPCClientTest, AFailedValidationGoesToTheSystemLogOnly) {
    const fake::LogCapture log;
    service.present = false;
    const auto client = validatedClient();
    EXPECT_THAT(systemLog.lines(), ElementsAre("Remote object proxy error --  suggestion"));
    dispatch->advance(10s);
    EXPECT_FALSE(client->connected());
}

TEST_F(FinderExtensionXPCClientTest, EveryRequestAsksTheVersionFirst) {
    service.records = {{{"Name", "a"}}, {{"Name", "b"}, {"MatchCount", "2"}}};
    service.extensions = {"txt", "csv"};
    service.visibility = {{"menuStatus", true}, {"iconsStatus", false}, {"agentIconDisable", true}};
    const auto client = validatedClient();
    EXPECT_EQ(client->getFileFilters("/f"), service.records);
    EXPECT_EQ(client->allowedExtensions(), service.extensions);
    EXPECT_EQ(client->decrypt("/d"), 0);
    EXPECT_TRUE(client->checkFullDiskAccess());
    EXPECT_EQ(client->getUIVisibilityStatuses(), service.visibility);
    client->checkEncryptionStatus("/e");
    dispatch->runUntilIdle();
    client->sendLogMessage("text", "Warn");
    dispatch->runUntilIdle();
    EXPECT_THAT(
        service.messages(),
        ElementsAre("version", "version", "getScanResult /f", "version", "allowedExtensions", "version",
                    "decrypt /d", "version", "checkFullDiskAccess", "version", "getUIVisibilityStatuses",
                    "version", "checkEncryptionStatus /e", "version", "sendLogMessage Warn text"));
    EXPECT_EQ(dispatch->now(), 0ns);
    EXPECT_THAT(systemLog.lines(), IsEmpty());
}

TEST_F(FinderExtensionXPCClientTest, PassesTheStatusOfADecryptionOnUnchanged) {
    const auto client = connectedClient();
    for (const std::int32_t status : {0, 1, 2, -1, 2'147'483'647}) {
        service.status = status;
        EXPECT_EQ(client->decrypt("/d"), status);
    }
}

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

TEST_F(FinderExtensionXPCClientTest, AServiceThatIsNotRootsIsToldOnceAndUsed) {
    fake::LogCapture log;
    service.transport()->service = cmn::XPCPeer{.userID = 4711};
    const auto client = validatedClient();
    service.transport()->lastConnection()->sendInterruption();
    dispatch->advance(3s);
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(
        log.count("The service com.tessarin.FinderExtension is run by the user with the id 4711 and not "
                  "by root: that user gets"),
        1U);
    EXPECT_EQ(client->decrypt("/d"), 0);
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

TEST_F(FinderExtensionXPCClientTest, ALateAnswerDoesNoHarmToTheNextRequest) {
    service.records = {{{"Name", "late"}}};
    service.requestDelay = 150ms;
    const auto client = connectedClient();
    EXPECT_THAT(client->getFileFilters("/slow"), IsEmpty());
    service.records = {{{"Name", "quick"}}};
    service.requestDelay = 80ms;  // the late answer comes first
    EXPECT_THAT(client->getFileFilters("/quick"), ElementsAre(cmn::ScanRecord{{"Name", "quick"}}));
}

TEST_F(FinderExtensionXPCClientTest, QuestionsAreGivenUpWithTheirCaller) {
    const auto client = validatedClient();
    for (const bool answersVersion : {false, true}) {
        service.answersVersion = answersVersion;
        service.answersRequests = false;
        for (int i = 0; i < 30; ++i) {
            client->getFileFilters("/f");
            client->allowedExtensions();
            client->checkFullDiskAccess();
            client->getUIVisibilityStatuses();
            ASSERT_EQ(service.calls.count(), 0U);
        }
    }
    EXPECT_THAT(systemLog.lines(), IsEmpty()) << "that nobody waits any more is no error";
}

TEST_F(FinderExtensionXPCClientTest, AQuestionWhoseVersionComesTooLateIsNotAsked) {
    service.versionDelay = 150ms;
    const auto client = connectedClient();
    client->getFileFilters("/f");
    dispatch->advance(1min);
    EXPECT_THAT(service.messages(), Not(Contains("getScanResult /f")));
}

TEST_F(FinderExtensionXPCClientTest, ADecryptionThatWasGivenUpIsStillCarriedOut) {
    service.versionDelay = 150ms;
    const auto client = connectedClient();
    EXPECT_EQ(client->decrypt("/d"), 2);
    dispatch->advance(1s);
    EXPECT_THAT(service.messages(), Contains("decrypt /d"));
}

TEST_F(FinderExtensionXPCClientTest, RequestsAreSentWhetherItIsConnectedOrNot) {
    const auto client = validatedClient();
    service.transport()->lastConnection()->sendInterruption();
    ASSERT_FALSE(client->connected());
    EXPECT_EQ(client->decrypt("/d"), 0);
}

TEST_F(FinderExtensionXPCClientTest, MayBeAskedFromTheMainQueueAndFromATask) {
    const auto client = connectedClient();
    std::int32_t onMain = -1;
    std::int32_t inTask = -1;
    service.requestDelay = 50ms;
    dispatch->asyncMain([&] { onMain = client->decrypt("/d"); });
    dispatch->async(cmn::QueuePriority::normal, [&] { inTask = client->decrypt("/d"); });
    dispatch->advance(60ms);
    EXPECT_EQ(onMain, 0);
    EXPECT_EQ(inTask, 0);
}

TEST_F(FinderExtensionXPCClientTest, MoreTasksThanThreadsThatAskAtTheSameTimeAreAllAnswered) {
    const auto client = connectedClient();
    service.versionDelay = service.requestDelay = 1ms;
    int answered = 0;
    for (int i = 0; i < 64; ++i) {
        dispatch->async(cmn::QueuePriority::normal, [&] { answered += client->decrypt("/d") == 0 ? 1 : 0; });
    }
    dispatch->advance(64 * 2ms);
    EXPECT_EQ(answered, 64);
}

TEST_F(FinderExtensionXPCClientTest, IsItsOwnDelegateForTheEncryptionStatus) {
    const auto client = connectedClient();
    client->checkEncryptionStatus("/e");
    dispatch->runUntilIdle();
    EXPECT_THAT(service.delegates, ElementsAre(client));
}

TEST_F(FinderExtensionXPCClientTest, HandsTheEncryptionStatusToItsBlock) {
    const auto client = connectedClient();
    std::vector<bool> answers;
    client->setCompleteblock([&](bool encrypted) { answers.push_back(encrypted); });
    client->checkEncryptionStatus("/e");
    dispatch->runUntilIdle();
    service.encrypted = false;
    client->checkEncryptionStatus("/e");
    dispatch->runUntilIdle();
    EXPECT_THAT(answers, ElementsAre(true, false));
}

TEST_F(FinderExtensionXPCClientTest, DoesNotWaitForTheEncryptionStatus) {
    service.versionDelay = service.requestDelay = 1h;
    const auto client = connectedClient();
    int answers = 0;
    client->setCompleteblock([&](bool) { ++answers; });
    client->checkEncryptionStatus("/e");
    client->sendLogMessage("text", "Info");
    EXPECT_EQ(dispatch->now(), 0ns);
    dispatch->advance(2h - 1ns);
    EXPECT_EQ(answers, 0);
    dispatch->advance(1ns);
    EXPECT_EQ(answers, 1);
}

TEST_F(FinderExtensionXPCClientTest, AnEncryptionStatusWithoutABlockIsDropped) {
    const auto client = connectedClient();
    client->didCheckEncryptionStatus(true);
    int answers = 0;
    client->setCompleteblock([&](bool) { ++answers; });
    client->setCompleteblock(nullptr);
    client->didCheckEncryptionStatus(true);
    EXPECT_EQ(answers, 0);
}

TEST_F(FinderExtensionXPCClientTest, TheBlockThatWasSetLastGetsTheAnswersOfAllChecks) {
    service.requestDelay = 10ms;
    const auto client = connectedClient();
    std::vector<std::string> answers;
    client->setCompleteblock([&](bool) { answers.emplace_back("first"); });
    client->checkEncryptionStatus("/1");
    client->setCompleteblock([&](bool) { answers.emplace_back("second"); });
    client->checkEncryptionStatus("/2");
    dispatch->advance(10ms);
    EXPECT_THAT(answers, ElementsAre("second", "second"));
}

TEST_F(FinderExtensionXPCClientTest, ABlockMaySetTheNextOne) {
    const auto client = connectedClient();
    std::vector<std::string> answers;
    client->setCompleteblock([&](bool) {
        answers.emplace_back("first");
        client->setCompleteblock([&](bool) { answers.emplace_back("second"); });
    });
    client->didCheckEncryptionStatus(true);
    client->didCheckEncryptionStatus(true);
    EXPECT_THAT(answers, ElementsAre("first", "second"));
    client->setCompleteblock(nullptr);
}

TEST_F(FinderExtensionXPCClientTest, FailedAsynchronousRequestsGoToTheSystemLog) {
    const auto client = validatedClient();
    service.present = false;
    client->checkEncryptionStatus("/e");
    client->sendLogMessage("text", "Info");
    dispatch->runUntilIdle();
    EXPECT_THAT(systemLog.lines(), ElementsAre("Failed to get remote object -- description",
                                               "Failed to get remote object -- description"));
}

class ConnectionEndTest : public FinderExtensionXPCClientTest,
                          public testing::WithParamInterface<std::pair<const char*, const char*>> {
 protected:
    // The end of the connection that the parameter names.
    void endConnection() {
        const auto connection = service.transport()->lastConnection();
        GetParam().first == std::string("interruption") ? connection->sendInterruption()
                                                        : connection->sendInvalidation();
    }
};

TEST_P(ConnectionEndTest, IsLoggedAndFollowedByANewConnectionAfterThreeSeconds) {
    const auto client = validatedClient();
    ASSERT_TRUE(client->connected());
    endConnection();
    EXPECT_THAT(systemLog.lines(), ElementsAre(GetParam().second));
    EXPECT_FALSE(client->connected());
    dispatch->advance(3s - 1ns);
    EXPECT_EQ(service.transport()->connectionsCreated(), 1);
    EXPECT_FALSE(client->connected());
    dispatch->advance(1ns);
    EXPECT_EQ(service.transport()->connectionsCreated(), 2);
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(client->decrypt("/d"), 0);
}

TEST_P(ConnectionEndTest, IsFollowedByNewAttemptsForEver) {
    service.present = false;
    const auto client = validatedClient();
    for (int i = 1; i <= 100; ++i) {
        endConnection();
        dispatch->advance(3s);
        ASSERT_EQ(service.transport()->connectionsCreated(), i + 1);
    }
    EXPECT_FALSE(client->connected());
    service.present = true;
    endConnection();
    dispatch->advance(3s);
    EXPECT_TRUE(client->connected());
}

INSTANTIATE_TEST_SUITE_P(Ends, ConnectionEndTest,
                         testing::Values(std::pair("interruption", "FinderExtensionXPCClient -- interrupt"),
                                         std::pair("invalidation",
                                                   "FinderExtensionXPCClient -- did invalidate")),
                         [](const auto& end) { return std::string(end.param.first); });

TEST_F(FinderExtensionXPCClientTest, AStoppedClientComesBackAfterThreeSeconds) {
    const auto client = validatedClient();
    client->stop();
    EXPECT_EQ(client->connection(), nullptr);
    dispatch->runUntilIdle();
    EXPECT_FALSE(client->connected());
    EXPECT_THAT(systemLog.lines(), ElementsAre("FinderExtensionXPCClient -- did invalidate"));
    EXPECT_EQ(client->decrypt("/d"), 2) << "meanwhile nobody answers";
    dispatch->advance(3s);
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(client->decrypt("/d"), 0);
}

TEST_F(FinderExtensionXPCClientTest, AClientThatIsLetGoLeavesNothingBehind) {
    const int connections = fake::XPCConnection::alive();
    auto client = validatedClient();
    client->checkEncryptionStatus("/e");
    client->checkFullDiskAccess();
    service.delegates.clear();
    client.reset();
    EXPECT_EQ(fake::XPCConnection::alive(), connections);
}

}  // namespace
