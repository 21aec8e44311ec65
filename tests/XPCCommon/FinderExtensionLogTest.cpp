#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "FinderExtensionServerFixture.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "support/Environment.h"

// The log of the Finder extension service.
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(FinderExtensionXPCServerTest, LogsToAFileOfItsOwnBesideTheProduct) {
    start();
    EXPECT_THAT(endAndReadLog(), ElementsAre(line(" INFO", "Finder entension server init"),
                                             line(" INFO", "FinderExtensionObjCXPCServer deallocated")));
    EXPECT_FALSE(std::filesystem::exists(folder / "com.tessarin.FinderExtension_0.log"))
        << "the file's name is not the service's";
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

}  // namespace
