#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/proto_settings.h"
#include "support/Environment.h"
#include "support/FakeXPCTransport.h"
#include "support/LogCapture.h"
#include "support/LogLine.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"

namespace {

using fake::LogLine;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;
using testing::UnorderedElementsAre;

// Answers as the test says, and remembers what it is asked.
class ScriptedScanner : public cmn::IFinderExtensionOperations {
 public:
    bool CheckEncryptionStatus(const std::string& path, const std::optional<cmn::XPCPeer>& asker) override {
        askers.push_back(asker);
        asked.push_back("CheckEncryptionStatus " + path);
        return encrypted;
    }
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& asker) override {
        askers.push_back(asker);
        asked.push_back("GetScanResult " + path);
        if (fails) {
            throw std::runtime_error("scan failed");
        }
        return records;
    }
    std::vector<std::string> GetAllowedExtensions() override {
        asked.emplace_back("GetAllowedExtensions");
        return extensions;
    }
    int Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& asker) override {
        askers.push_back(asker);
        asked.push_back("Decrypt " + path);
        return status;
    }

    bool encrypted = true;
    bool fails = false;
    std::vector<cmn::ScanRecord> records;
    std::vector<std::string> extensions;
    int status = 0;
    std::vector<std::string> asked;
    std::vector<std::optional<cmn::XPCPeer>> askers;  // of the questions about files
};

class RecordingDelegate : public cmn::FinderExtensionDelegate {
 public:
    void didCheckEncryptionStatus(bool encrypted) override { answers.push_back(encrypted); }

    std::vector<bool> answers;
};

class FinderExtensionXPCServerTest : public testing::Test {
 protected:
    FinderExtensionXPCServerTest() {
        settings.LogLevel = "Trace";
        settings.Products.resize(2);
        settings.Products[0].NativeName = "other";
        settings.Products[1].InstallPath = folder.path().string();
        settings.Products[1].NativeName = cmn::proto::GetCurrentProductNativeName();
        cmn::proto::SetSettings(settings);
    }
    ~FinderExtensionXPCServerTest() override { cmn::proto::SetSettings(cmn::proto::TSettings()); }

    void start() { server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport); }
    void startWithScanner() {
        start();
        server->setScannerService(scanner);
    }
    // A new peer's view of the service.
    std::shared_ptr<cmn::FinderExtensionCommunicator> connect() {
        server->start();
        connection = transport->lastListener()->connectPeer();
        return connection
                   ? std::dynamic_pointer_cast<cmn::FinderExtensionCommunicator>(connection->exportedObject())
                   : nullptr;
    }
    static auto line(const std::string& level, const std::string& text) {
        return AllOf(StartsWith("[" + level + "] ["), EndsWith("] " + text));
    }
    // What the service's own log holds once it has ended.
    std::vector<std::string> endAndReadLog() {
        connection.reset();
        server.reset();
        return fake::ReadLines(folder / "com.tessarin.finderExtension_0.log");
    }
    // The same without the first and the last line, those that every service leaves.
    std::vector<std::string> endAndReadRequests() {
        std::vector<std::string> lines = endAndReadLog();
        if (lines.size() < 2) {
            ADD_FAILURE() << "the service left " << lines.size() << " lines";
            return {"no lines of a service"};
        }
        EXPECT_THAT(lines.front(), line(" INFO", "Finder entension server init"));
        EXPECT_THAT(lines.back(), line(" INFO", "FinderExtensionObjCXPCServer deallocated"));
        return {std::next(lines.begin()), std::prev(lines.end())};
    }

    fake::TemporaryFolder folder;
    cmn::proto::TSettings settings;
    std::shared_ptr<fake::XPCTransport> transport = std::make_shared<fake::XPCTransport>();
    std::shared_ptr<fake::XPCConnection> connection;
    std::shared_ptr<ScriptedScanner> scanner = std::make_shared<ScriptedScanner>();
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<cmn::FinderExtensionObjCXPCServer> server;
};

TEST_F(FinderExtensionXPCServerTest, ListensUnderItsNameOnceStarted) {
    start();
    EXPECT_EQ(transport->lastListener(), nullptr);
    server->start();
    EXPECT_EQ(transport->lastListener()->machServiceName, "com.tessarin.FinderExtension");
    EXPECT_TRUE(transport->lastListener()->resumed);
}

TEST_F(FinderExtensionXPCServerTest, LogsToAFileOfItsOwnBesideTheProduct) {
    start();
    EXPECT_THAT(endAndReadLog(), ElementsAre(line(" INFO", "Finder entension server init"),
                                             line(" INFO", "FinderExtensionObjCXPCServer deallocated")));
    EXPECT_FALSE(std::filesystem::exists(folder / "com.tessarin.FinderExtension_0.log"))
        << "the file's name is not the service's";
}

class FinderExtensionLogTest : public FinderExtensionXPCServerTest {
 protected:
    FinderExtensionLogTest() {
        settings.Products[1].InstallPath = (folder / "missing").string();
        cmn::proto::SetSettings(settings);
    }
    // Lets the service run and end in a working directory of its own, for a user with that folder for states.
    void runAsUserWith(const std::filesystem::path& stateFolder) {
        const fake::Environment state("XDG_STATE_HOME", stateFolder.string());
        const auto before = std::filesystem::current_path();
        std::filesystem::create_directory(folder / "working directory");
        std::filesystem::current_path(folder / "working directory");
        start();
        server->sendLogMessage("text", "Warn");
        endAndReadLog();
        std::filesystem::current_path(before);
        EXPECT_TRUE(std::filesystem::is_empty(folder / "working directory"));
    }
    void SetUp() override {
        if (!cmn::GetSystemLogFolder().empty()) {
            GTEST_SKIP() << "the product is installed here, its log would be written";
        }
    }

    const std::string wanted = folder / "missing/com.tessarin.finderExtension_0.log";
};

TEST_F(FinderExtensionLogTest, SaysOnceWhereItIsWhenItCannotBeBesideTheProduct) {
    runAsUserWith(folder / "state");
    const auto file = folder / "state/tessarin/com.tessarin.finderExtension_0.log";
    EXPECT_THAT(fake::ReadLines(file),
                ElementsAre(line(" INFO", "This log cannot be written to " + wanted + ", so it goes to " +
                                              file.string()),
                            line(" INFO", "Finder entension server init"), line(" WARN", "text"),
                            line(" INFO", "FinderExtensionObjCXPCServer deallocated")));
}

TEST_F(FinderExtensionLogTest, GoesToTheErrorStreamWhenItCanBeNowhere) {
    cmn::StrToFile("", folder / "file");
    testing::internal::CaptureStderr();
    runAsUserWith(folder / "file");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("[ WARN]"),
                      HasSubstr("This log cannot be written to " + wanted +
                                ", so it goes to the standard error stream\n"),
                      HasSubstr("text\n")));
}

TEST_F(FinderExtensionXPCServerTest, WritesNoLineOfItsOwnToTheProcessLog) {
    fake::LogCapture processLog;
    startWithScanner();
    auto service = connect();
    service->getScanResult("/f", nullptr);
    service->sendLogMessage("text", "Error");
    service.reset();
    EXPECT_THAT(processLog.lines(), IsEmpty());
    EXPECT_THAT(endAndReadRequests(),
                ElementsAre(line(" INFO", "Accepted new XPC connection"),
                            line(" INFO", "getScanResult called for path: /f"),
                            line(" INFO", "Scan result loaded successfully"), line("ERROR", "text")))
        << "it did write lines";
}

TEST_F(FinderExtensionXPCServerTest, TakesItsLogLevelFromTheSettings) {
    settings.LogLevel = "Warn";
    cmn::proto::SetSettings(settings);
    start();
    server->sendLogMessage("heard", "Warn");
    server->sendLogMessage("too quiet", "Info");
    EXPECT_THAT(endAndReadLog(), ElementsAre(line(" WARN", "heard")));
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

TEST_F(FinderExtensionXPCServerTest, PathsAndMessagesOfOthersForgeNoLine) {
    startWithScanner();
    server->getScanResult("/a\n[ERROR]", [](const auto&) {});
    server->decrypt("/b\x1B[2J", [](std::int32_t) {});
    server->checkEncryptionStatus("/c\r", delegate);
    server->sendLogMessage("text\n[ERROR] forged\xC2\x9B", "Warn");
    // The scanner is asked about the file itself.
    EXPECT_THAT(scanner->asked,
                ElementsAre("GetScanResult /a\n[ERROR]", "Decrypt /b\x1B[2J", "CheckEncryptionStatus /c\r"));
    EXPECT_THAT(endAndReadRequests(),
                ElementsAre(line(" INFO", "getScanResult called for path: /a\\x0a[ERROR]"),
                            line(" INFO", "Scan result loaded successfully"),
                            line(" INFO", "Decryption attempted for path: /b\\x1b[2J"),
                            line("DEBUG", "Encryption status for path: /c\\x0d is encrypted"),
                            line(" WARN", "text\\x0a[ERROR] forged\\xc2\\x9b")));
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

TEST_F(FinderExtensionXPCServerTest, WritesAClientsLogLinesAtTheLevelItNames) {
    start();
    const std::pair<const char*, const char*> levels[] = {
        {"Error", "ERROR"}, {"Warn", " WARN"},  {"Info", " INFO"},
        {"Debug", "DEBUG"}, {"Trace", "TRACE"}, {"Silent", "unknown_level"},
        {"", " INFO"},      {"Loud", " INFO"},  {"error", " INFO"}};
    std::vector<testing::Matcher<std::string>> expected;
    for (const auto& [name, tag] : levels) {
        server->sendLogMessage("{} of " + std::string(name), name);
        expected.emplace_back(line(tag, "{} of " + std::string(name)));
    }
    server->sendLogMessage("", "Warn");
    expected.emplace_back(line(" WARN", ""));
    EXPECT_THAT(endAndReadRequests(), testing::ElementsAreArray(expected));
}

}  // namespace
