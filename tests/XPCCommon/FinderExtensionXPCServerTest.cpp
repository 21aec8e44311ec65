#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "FinderExtensionServerFixture.h"
#include "common/SystemUtils.h"
#include "support/LogLine.h"

namespace {

using fake::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST_F(FinderExtensionXPCServerTest, ListensUnderItsNameOnceStarted) {
    start();
    EXPECT_EQ(transport->lastListener(), nullptr);
    server->start();
    EXPECT_EQ(transport->lastListener()->machServiceName, "com.tessarin.FinderExtension");
    EXPECT_TRUE(transport->lastListener()->resumed);
}

TEST_F(FinderExtensionXPCServerTest, ThrowsWhenTheSettingsDoNotListTheProgram) {
    settings.Products.pop_back();
    cmn::proto::SetSettings(settings);
    EXPECT_THROW(start(), std::runtime_error);
}

TEST_F(FinderExtensionXPCServerTest, TheSharedInstanceIsOneForTheProcess) {
    const auto first = cmn::FinderExtensionObjCXPCServer::sharedInstance(transport);
    const auto second =
        cmn::FinderExtensionObjCXPCServer::sharedInstance(std::make_shared<fake::XPCTransport>());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    first->start();
    EXPECT_NE(transport->lastListener(), nullptr) << "it listens where the first call said";
    first->stop();
}

TEST_F(FinderExtensionXPCServerTest, AcceptsEveryConnectionAndLogsIt) {
    start();
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(connect(), nullptr);
        EXPECT_TRUE(connection->resumed());
        EXPECT_TRUE(connection->hasHandlers());
        EXPECT_NE(connection->exportedInterface(), nullptr);
    }
    const auto accepted = line(" INFO", "Accepted new XPC connection");
    EXPECT_THAT(endAndReadRequests(), ElementsAre(accepted, accepted, accepted));
}

TEST_F(FinderExtensionXPCServerTest, ADroppedConnectionIsLoggedAndWarnedAboutAsNotOverridden) {
    fake::LogCapture processLog;
    start();
    connect();
    connection->sendInvalidation();
    connect();
    connection->sendInterruption();
    EXPECT_THAT(processLog.lines(),
                ElementsAre(LogLine(" WARN", "Not overridden"), LogLine(" WARN", "Not overridden")));
    const auto accepted = line(" INFO", "Accepted new XPC connection");
    EXPECT_THAT(endAndReadRequests(),
                ElementsAre(accepted, line("DEBUG", "FinderExtensionObjCXPCServer -- did invalidate"),
                            accepted, line("DEBUG", "FinderExtensionObjCXPCServer -- did interrupt")));
}

TEST_F(FinderExtensionXPCServerTest, TheHandlersOfAConnectionHoldItWeakly) {
    start();
    const auto peer = transport->createConnection("", cmn::XPCConnectionOptions::none);
    const long before = server.use_count();
    server->shouldAcceptNewConnection(peer);
    EXPECT_EQ(server.use_count(), before + 1) << "only the exported object";
}

TEST_F(FinderExtensionXPCServerTest, AnswersVersionWith10) {
    start();
    std::string version;
    connect()->version([&](const std::string& answer) { version = answer; });
    EXPECT_EQ(version, "1.0");
}

// Every question about files to a service whose scanner is not there.
void ExpectNeutralAnswers(cmn::FinderExtensionObjCXPCServer& server) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    server.checkEncryptionStatus("/e", delegate);
    EXPECT_THAT(delegate->answers, ElementsAre(false));
    int answers = 0;
    server.getScanResult("/f", [&](const std::vector<cmn::ScanRecord>& records) {
        ++answers;
        EXPECT_THAT(records, IsEmpty());
    });
    server.allowedExtensions([&](const std::vector<std::string>& extensions) {
        ++answers;
        EXPECT_THAT(extensions, IsEmpty());
    });
    server.decrypt("/d", [&](std::int32_t status) {
        ++answers;
        EXPECT_EQ(status, 2);
    });
    EXPECT_EQ(answers, 3);
}

TEST_F(FinderExtensionXPCServerTest, WithoutAScannerEveryQuestionGetsItsNeutralAnswer) {
    start();
    ExpectNeutralAnswers(*server);
    EXPECT_THAT(endAndReadRequests(), ElementsAre(line(" INFO", "getScanResult called for path: /f")))
        << "only the scan leaves a line";
}

TEST_F(FinderExtensionXPCServerTest, AScannerThatIsGoneIsNone) {
    startWithScanner();
    scanner->records = {{{"Name", "a"}}};
    scanner.reset();
    ExpectNeutralAnswers(*server);
}

TEST_F(FinderExtensionXPCServerTest, DoesNotKeepTheScannerAlive) {
    startWithScanner();
    server->getScanResult("/f", nullptr);
    EXPECT_EQ(scanner.use_count(), 1);
}

TEST_F(FinderExtensionXPCServerTest, ANewScannerReplacesTheOneBefore) {
    startWithScanner();
    const auto second = std::make_shared<ScriptedScanner>();
    server->setScannerService(second);
    server->getScanResult("/f", nullptr);
    EXPECT_THAT(scanner->asked, IsEmpty());
    EXPECT_THAT(second->asked, ElementsAre("GetScanResult /f"));
    server->setScannerService({});
    ExpectNeutralAnswers(*server);
}

TEST_F(FinderExtensionXPCServerTest, AnswersAScanWithTheScannersRecordsInTheirOrder) {
    startWithScanner();
    scanner->records = {{{"Name", "b"}, {"MatchCount", "3"}}, {{"Name", "a"}}};
    std::vector<cmn::ScanRecord> answer;
    server->getScanResult("/f", [&](const auto& records) { answer = records; });
    EXPECT_EQ(answer, scanner->records);
    EXPECT_THAT(endAndReadRequests(), ElementsAre(line(" INFO", "getScanResult called for path: /f"),
                                                  line(" INFO", "Scan result loaded successfully")));
}

TEST_F(FinderExtensionXPCServerTest, TellsTheScannerWhoAsks) {
    startWithScanner();
    connect();
    const auto alice = transport->lastListener()->connectPeer(cmn::XPCPeer{.userID = 1000, .processID = 10});
    const auto bob = transport->lastListener()->connectPeer(cmn::XPCPeer{.userID = 1001, .processID = 11});
    for (const auto& asker : {alice, bob, connection}) {
        scanner->askers.clear();
        asker->deliver<cmn::FinderExtensionCommunicator>([](auto& service) {
            service.checkEncryptionStatus("/e", nullptr);
            service.getScanResult("/f", nullptr);
            service.decrypt("/d", nullptr);
        });
        EXPECT_THAT(scanner->askers, ElementsAre(asker->peer(), asker->peer(), asker->peer()));
    }
    EXPECT_EQ(connection->peer(), std::nullopt);
    EXPECT_NE(alice->peer(), bob->peer());
}

TEST_F(FinderExtensionXPCServerTest, AScanOfAnEmptyPathIsTheScannersAffair) {
    startWithScanner();
    server->getScanResult("", nullptr);
    server->decrypt("", nullptr);
    EXPECT_THAT(scanner->asked, ElementsAre("GetScanResult ", "Decrypt "));
}

TEST_F(FinderExtensionXPCServerTest, AFailureOfTheScannerIsNotCaught) {
    startWithScanner();
    scanner->fails = true;
    EXPECT_THROW(server->getScanResult("/f", nullptr), std::runtime_error);
    EXPECT_THAT(endAndReadRequests(), ElementsAre(line(" INFO", "getScanResult called for path: /f")));
}

TEST_F(FinderExtensionXPCServerTest, AnswersTheAllowedExtensionsInTheirOrderWithoutALine) {
    startWithScanner();
    scanner->extensions = {"txt", "csv", "md"};
    std::vector<std::string> answer;
    server->allowedExtensions([&](const auto& extensions) { answer = extensions; });
    EXPECT_THAT(answer, ElementsAre("txt", "csv", "md"));
    EXPECT_THAT(endAndReadRequests(), IsEmpty());
}

TEST_F(FinderExtensionXPCServerTest, PassesTheStatusOfADecryptionOnUnchanged) {
    startWithScanner();
    std::vector<std::int32_t> answers;
    for (const int status : {0, 1, 2, -7}) {
        scanner->status = status;
        server->decrypt("/d", [&](std::int32_t answer) { answers.push_back(answer); });
    }
    EXPECT_THAT(answers, ElementsAre(0, 1, 2, -7));
    const auto attempted = line(" INFO", "Decryption attempted for path: /d");
    EXPECT_THAT(endAndReadRequests(), ElementsAre(attempted, attempted, attempted, attempted));
}

TEST_F(FinderExtensionXPCServerTest, TellsTheDelegateTheEncryptionStatus) {
    startWithScanner();
    server->checkEncryptionStatus("/e", delegate);
    scanner->encrypted = false;
    server->checkEncryptionStatus("/e", delegate);
    EXPECT_THAT(delegate->answers, ElementsAre(true, false));
    EXPECT_THAT(endAndReadRequests(),
                ElementsAre(line("DEBUG", "Encryption status for path: /e is encrypted"),
                            line("DEBUG", "Encryption status for path: /e is not encrypted")));
}

TEST_F(FinderExtensionXPCServerTest, AnEncryptionStatusThatNobodyWantsIsNoError) {
    startWithScanner();
    server->checkEncryptionStatus("/e", nullptr);
    server->checkEncryptionStatus("", nullptr);
    server->setScannerService({});
    server->checkEncryptionStatus("/e", nullptr);
    EXPECT_THAT(scanner->asked, ElementsAre("CheckEncryptionStatus /e"));
    EXPECT_THAT(endAndReadRequests(),
                ElementsAre(line("DEBUG", "Encryption status for path: /e is encrypted"),
                            line(" WARN", "checkEncryptionStatus called with empty path")));
}

TEST_F(FinderExtensionXPCServerTest, AnEmptyPathIsNotEncryptedAndWarnedAbout) {
    startWithScanner();
    server->checkEncryptionStatus("", delegate);
    EXPECT_THAT(delegate->answers, ElementsAre(false));
    EXPECT_THAT(scanner->asked, IsEmpty());
    EXPECT_THAT(endAndReadRequests(),
                ElementsAre(line(" WARN", "checkEncryptionStatus called with empty path")));
}

TEST_F(FinderExtensionXPCServerTest, AnswersTheVisibilityFlagsWithExactlyThreeKeys) {
    start();
    cmn::UIVisibilityStatuses answer;
    server->getUIVisibilityStatuses([&](const auto& statuses) { answer = statuses; });
    EXPECT_THAT(answer, UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", false),
                                             Pair("agentIconDisable", false)));
}

TEST_F(FinderExtensionXPCServerTest, ReadsEachVisibilityFlagFromItsSettingAtEachCall) {
    start();
    const auto ask = [&] {
        std::vector<bool> flags;
        server->getUIVisibilityStatuses([&](const cmn::UIVisibilityStatuses& statuses) {
            flags = {statuses.at("menuStatus"), statuses.at("iconsStatus"), statuses.at("agentIconDisable")};
        });
        return flags;
    };
    using Settings = cmn::proto::TSettings;
    cmn::proto::SetSettings([](Settings& s) { s.IsExtensionMenuAvailable = true; });
    EXPECT_THAT(ask(), ElementsAre(true, false, false));
    cmn::proto::SetSettings(settings);
    cmn::proto::SetSettings([](Settings& s) { s.IsExtensionIconsAvailable = true; });
    EXPECT_THAT(ask(), ElementsAre(false, true, false));
    cmn::proto::SetSettings(settings);
    cmn::proto::SetSettings([](Settings& s) { s.AgentIconDisable = true; });
    EXPECT_THAT(ask(), ElementsAre(false, false, true));
}

TEST_F(FinderExtensionXPCServerTest, AnswersWhetherThereIsFullDiskAccess) {
    start();
    std::vector<bool> answers;
    server->checkFullDiskAccess([&](bool granted) { answers.push_back(granted); });
    EXPECT_THAT(answers, ElementsAre(cmn::IsFullDiskAccessGranted()));
}

TEST_F(FinderExtensionXPCServerTest, AsksAnotherProbeForFullDiskAccessAnewEachTime) {
    start();
    bool granted = false;
    server->setFullDiskAccessProbe([&granted] { return granted; });
    std::vector<bool> answers;
    const auto ask = [&] { server->checkFullDiskAccess([&](bool answer) { answers.push_back(answer); }); };
    ask();
    granted = true;
    ask();
    EXPECT_THAT(answers, ElementsAre(false, true));
}

TEST_F(FinderExtensionXPCServerTest, AsksTheProbeOnceForEachQuestionAlsoWithoutAReply) {
    start();
    int asked = 0;
    server->setFullDiskAccessProbe([&asked] { return ++asked % 2 == 0; });
    server->checkFullDiskAccess(nullptr);
    EXPECT_EQ(asked, 1);
    std::vector<bool> answers;
    server->checkFullDiskAccess([&](bool granted) { answers.push_back(granted); });
    server->checkFullDiskAccess(nullptr);
    EXPECT_EQ(asked, 3);
    EXPECT_THAT(answers, ElementsAre(true));
}

TEST_F(FinderExtensionXPCServerTest, QuestionsWithoutAReplyFunctionAreNoError) {
    startWithScanner();
    server->version(nullptr);
    server->decrypt("/d", nullptr);
    server->getScanResult("/f", nullptr);
    server->allowedExtensions(nullptr);
    server->checkFullDiskAccess(nullptr);
    server->getUIVisibilityStatuses(nullptr);
    EXPECT_THAT(scanner->asked, ElementsAre("Decrypt /d", "GetScanResult /f", "GetAllowedExtensions"));
    EXPECT_THAT(endAndReadRequests(), ElementsAre(line(" INFO", "Decryption attempted for path: /d"),
                                                  line(" INFO", "getScanResult called for path: /f"),
                                                  line(" INFO", "Scan result loaded successfully")));
}

}  // namespace
