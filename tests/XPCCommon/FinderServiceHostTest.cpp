#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "HostProcess.h"
#include "common/SystemUtils.h"
#include "support/BusWorld.h"
#include "support/RawPeer.h"
#include "xpccommon/FinderExtensionXPCClient.h"

// The Finder extension service as the host runs it: a process with a scanner that works on real files.
namespace {

using fake::WaitFor;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class FinderServiceHostTest : public fake::BusWorld {
 protected:
    FinderServiceHostTest() {
        write("classifiers.json", R"({"AllowedExtensions": ["txt", "csv"], "Classifiers": [
            {"Name": "Numbers", "Pattern": "[0-9]{4}", "SensitiveType": true, "costUsd": 0.5}]})");
    }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(folder / name) << text;
        return (folder / name).string();
    }
    std::string read(const std::string& name) const {
        std::ifstream in(folder / name);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::unique_ptr<HostProcess> startHost(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(),
                         {"--json", "--classifiers", (folder / "classifiers.json").string()});
        auto host = std::make_unique<HostProcess>(bus.address(), arguments);
        EXPECT_TRUE(host->isReady()) << host->process().errors();
        return host;
    }
    std::shared_ptr<cmn::FinderExtensionXPCClient> startClient() {
        auto client =
            std::make_shared<cmn::FinderExtensionXPCClient>(hurried(kPatience), hurriedTransport(kPatience));
        client->connect();
        EXPECT_TRUE(WaitFor([&] { return client->connected(); }));
        return client;
    }

    // A pattern that reads the rest of the text for every match, and a text of a million of them.
    std::string writeSlowScan() const {
        write("classifiers.json", R"({"Classifiers": [{"Name": "Slow", "Pattern": "a(?s:.*b)?"}]})");
        return write("slow", std::string(1'000'000, 'a'));
    }

    fake::TemporaryFolder folder;
};

TEST_F(FinderServiceHostTest, ScansTheFileThatItIsAskedFor) {
    const auto host = startHost();
    const auto client = startClient();
    const auto records = client->getFileFilters(write("a file", "1234 and 5678 and 1234"));
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_THAT(records[0], AllOf(Contains(Pair("Name", "Numbers")), Contains(Pair("SensitiveType", "1")),
                                  Contains(Pair("costUsd", "0.5")), Contains(Pair("MatchCount", "3")),
                                  Contains(Pair("UniqueCount", "2"))));
    EXPECT_THAT(client->getFileFilters(write("nothing", "no numbers here")), IsEmpty());
    EXPECT_THAT(client->getFileFilters((folder / "absent").string()), IsEmpty());
    EXPECT_THAT(client->allowedExtensions(), ElementsAre("txt", "csv"));
}

TEST_F(FinderServiceHostTest, LooksAtNoMoreOfAFileThanItIsTold) {
    const auto host = startHost({"--scan-limit", "10"});
    const auto client = startClient();
    const auto records = client->getFileFilters(write("file", "1234 5678 9999 9999"));
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(records[0].at("MatchCount"), "2");
}

TEST_F(FinderServiceHostTest, AScanTakesNoMoreTimeThanItIsTold) {
    const std::string path = writeSlowScan();
    const auto host = startHost({"--scan-seconds", "1"});
    fake::RawPeer peer(bus.address());
    const auto answer = peer.call(fake::RawPeer::message(
        "com.tessarin.FinderExtension", "/com/tessarin/FinderExtension", "com.tessarin.FinderExtension",
        "GetScanResult", {QString::fromStdString(path)}));
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
    EXPECT_TRUE(WaitFor([&] {
        return host->process().errors().find("Scan of " + path + " is incomplete -- It took too long") !=
               std::string::npos;
    }));
}

TEST_F(FinderServiceHostTest, ScansThatAreUnderWayDoNotHoldUpItsEnd) {
    constexpr int kScans = 33;  // one more than the host has threads for
    const std::string path = writeSlowScan();
    const auto host = startHost({"--scan-seconds", "3600"});
    std::vector<std::unique_ptr<fake::RawPeer>> peers;
    for (int i = 0; i < kScans; ++i) {
        peers.push_back(std::make_unique<fake::RawPeer>(bus.address()));
        peers.back()->send(fake::RawPeer::message(
            "com.tessarin.FinderExtension", "/com/tessarin/FinderExtension", "com.tessarin.FinderExtension",
            "GetScanResult", {QString::fromStdString(path)}));
    }
    ASSERT_TRUE(WaitFor([&] {
        const auto lines = host->serviceLog();
        return std::ranges::count_if(lines, [&](const std::string& line) {
                   return line.ends_with("] getScanResult called for path: " + path);
               }) >= kScans - 1;
    }));
    const auto begin = std::chrono::steady_clock::now();
    host->process().signal(SIGTERM);
    EXPECT_EQ(host->process().wait(std::chrono::seconds(60)), 0);
    std::cout << "ended after "
              << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() << " s\n";
}

TEST_F(FinderServiceHostTest, AnswersFixedRecordsForThePathsThatItIsTold) {
    const auto host =
        startHost({"--records", write("records.json",
                                      R"({"/fixed": [{"Name": "first", "MatchCount": 7}, {"Name": "b"}]})")});
    const auto client = startClient();
    EXPECT_THAT(client->getFileFilters("/fixed"),
                ElementsAre(UnorderedElementsAre(Pair("Name", "first"), Pair("MatchCount", "7")),
                            UnorderedElementsAre(Pair("Name", "b"))));
    EXPECT_THAT(client->getFileFilters(write("file", "1234")), SizeIs(1)) << "others are scanned";
}

TEST_F(FinderServiceHostTest, UnsealsFilesAndTellsWhetherTheyAreSealed) {
    const auto host = startHost();
    const auto client = startClient();
    const std::string path = write("sealed", "TESSARIN HOST SEALED FILE 1\nthe content 1234");
    const fake::Recorder<bool> answers;
    client->setCompleteblock(answers);
    const auto check = [&](std::size_t count) {
        client->checkEncryptionStatus(path);
        EXPECT_TRUE(WaitFor([&] { return answers.count() == count; }));
    };
    check(1);
    EXPECT_THAT(client->getFileFilters(path), SizeIs(1)) << "what it holds is looked at all the same";
    EXPECT_EQ(client->decrypt(path), 0);
    EXPECT_EQ(read("sealed"), "the content 1234");
    check(2);
    EXPECT_EQ(client->decrypt(path), 1) << "it is not sealed any more";
    EXPECT_EQ(client->decrypt((folder / "absent").string()), 3);
    EXPECT_THAT(answers.all(), ElementsAre(true, false));
    client->setCompleteblock(nullptr);
}

TEST_F(FinderServiceHostTest, AnswersTheVisibilityFlagsAsTheSettingsAreAtEachCall) {
    const std::string settings = write("settings.json", R"({"IsExtensionMenuAvailable": true})");
    // Without a product of its own in them the service's log would go beside the program.
    const auto withProduct = [&](const std::string& flags) {
        write("settings.json", "{" + flags + R"("Products": [{"Name": "Host", "InstallPath": ")" +
                                   folder.path().string() + R"(", "NativeName": "TessarinServiceHost"}]})");
    };
    withProduct(R"("IsExtensionMenuAvailable": true,)");
    const auto host = startHost({"--settings", settings});
    const auto client = startClient();
    EXPECT_THAT(client->getUIVisibilityStatuses(),
                UnorderedElementsAre(Pair("menuStatus", true), Pair("iconsStatus", false),
                                     Pair("agentIconDisable", false)));
    withProduct(R"("IsExtensionIconsAvailable": true, "AgentIconDisable": true,)");
    host->process().write("reload\n");
    ASSERT_TRUE(host->event("reloaded").IsObject());
    EXPECT_THAT(client->getUIVisibilityStatuses(),
                UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", true),
                                     Pair("agentIconDisable", true)));
    write("settings.json", "{");
    host->process().write("reload\n");
    EXPECT_THAT(host->event("error")["message"].GetString(),
                StartsWith("the settings stay as they are: Couldn't open "));
    EXPECT_TRUE(client->getUIVisibilityStatuses().at("iconsStatus"));
}

TEST_F(FinderServiceHostTest, AnswersForItsOwnProcessWhetherThereIsFullDiskAccess) {
    const auto host = startHost();
    EXPECT_EQ(startClient()->checkFullDiskAccess(), cmn::IsFullDiskAccessGranted());
}

TEST_F(FinderServiceHostTest, FullDiskAccessComesAndGoesWithAFolderOfTheUsersChoice) {
    const auto probe = folder / "probe";
    const auto host = startHost({"--full-disk-access-folder", probe.string()});
    const auto client = startClient();
    EXPECT_FALSE(client->checkFullDiskAccess());
    std::filesystem::create_directory(probe);
    EXPECT_TRUE(client->checkFullDiskAccess());
    std::filesystem::remove(probe);
    EXPECT_FALSE(client->checkFullDiskAccess());
}

TEST_F(FinderServiceHostTest, KeepsALogOfTheService) {
    const auto host = startHost();
    {
        const auto client = startClient();
        client->sendLogMessage("from the extension", "Warn");
        client->getFileFilters("/f");
    }
    host->process().write("quit\n");
    EXPECT_EQ(host->process().wait(), 0);
    const auto lines = host->serviceLog();
    ASSERT_THAT(lines, SizeIs(testing::Ge(5U)));
    EXPECT_THAT(lines.front(), EndsWith("] Finder entension server init"));
    EXPECT_THAT(lines, Contains(AllOf(StartsWith("[ WARN]"), EndsWith("] from the extension"))));
    EXPECT_THAT(lines,
                Contains(AllOf(StartsWith("[ INFO]"), EndsWith("] getScanResult called for path: /f"))));
    EXPECT_THAT(lines.back(), EndsWith("] FinderExtensionObjCXPCServer deallocated"));
}

TEST_F(FinderServiceHostTest, AnAbortedHostSaysSoInBothItsLogs) {
    const auto host = startHost({"--log-file", (folder / "host").string()});
    host->process().signal(SIGABRT);
    EXPECT_EQ(host->process().wait(), -SIGABRT);
    const auto lines = host->serviceLog();
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines.front(), EndsWith("] Finder entension server init"));
    EXPECT_EQ(lines.back(), "Ended by the signal SIGABRT");
    EXPECT_EQ(fake::ReadLines(folder / "host_0.log").back(), "Ended by the signal SIGABRT");
}

TEST_F(FinderServiceHostTest, StopsListeningOnCommand) {
    const auto host = startHost();
    const auto client = startClient();
    host->process().write("stop\n");
    ASSERT_TRUE(host->event("stopped").IsObject());
    EXPECT_TRUE(WaitFor([&] { return !client->connected(); }));
}

TEST_F(FinderServiceHostTest, RefusesFilesThatCannotBeUsedWithStatus2AndAReason) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{"--classifiers", "/no such file"}, "/no such file"},
        {{"--classifiers", write("bad.json", R"({"Classifiers": [{"Name": "N", "Pattern": "("}]})")},
         "classifier 1 (N)"},
        {{"--records", write("bad2.json", "[]")}, "bad2.json"},
        {{"--settings", "/no such file"}, "Couldn't open /no such file"}};
    for (const auto& [arguments, reason] : bad) {
        HostProcess host(bus.address(), arguments);
        EXPECT_EQ(host.process().wait(), 2) << reason;
        EXPECT_THAT(host.process().errors(), AllOf(StartsWith("TessarinServiceHost: "), HasSubstr(reason)));
    }
}

}  // namespace
