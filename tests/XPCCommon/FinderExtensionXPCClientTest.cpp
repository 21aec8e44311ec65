#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FinderExtensionClientFixture.h"

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

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
