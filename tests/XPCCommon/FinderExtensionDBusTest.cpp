#include <gtest/gtest.h>

#include <future>

#include "FinderExtensionBusFixture.h"
#include "support/InThreads.h"

// Both ends of the Finder extension service together.
namespace {

using namespace std::chrono_literals;
using fake::RawPeer;
using fake::WaitFor;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class FinderExtensionDBusTest : public FinderExtensionBusFixture {};

TEST_F(FinderExtensionDBusTest, BothEndsExchangeEverything) {
    const auto server = startServer();
    const auto client = startPatientClient();
    EXPECT_THAT(client->getFileFilters("/a"),
                ElementsAre(cmn::ScanRecord{{"Name", "/a"}, {"MatchCount", "1"}},
                            cmn::ScanRecord{{"Name", "second"}}));
    EXPECT_THAT(client->allowedExtensions(), ElementsAre("txt", "csv"));
    EXPECT_EQ(client->decrypt("/four"), 5);
    client->checkFullDiskAccess();
    EXPECT_THAT(client->getUIVisibilityStatuses(),
                UnorderedElementsAre(Pair("menuStatus", false), Pair("iconsStatus", true),
                                     Pair("agentIconDisable", false)));
    const fake::Recorder<bool> answers;
    client->setCompleteblock(answers);
    for (const char* path : {"/secret/f", "/open/f", ""}) {
        client->checkEncryptionStatus(path);
    }
    ASSERT_TRUE(WaitFor([&] { return answers.count() == 3; }));
    EXPECT_THAT(answers.all(), ElementsAre(true, false, false));
    client->setCompleteblock(nullptr);
    EXPECT_THAT(systemLog.lines(), IsEmpty());
}

TEST_F(FinderExtensionDBusTest, PathsTravelUnchangedWhateverTheyHold) {
    const auto server = startServer();
    const auto client = startPatientClient();
    for (const std::string& path :
         {std::string(), std::string("/with\nline\tbreak"), std::string("/quote\"'\\{}%s"),
          std::string("/\xf0\x9f\xa6\x8a"), "/" + std::string(60 << 10, 'x')}) {
        EXPECT_THAT(client->getFileFilters(path),
                    Contains(cmn::ScanRecord{{"Name", path}, {"MatchCount", "1"}}))
            << path.substr(0, 100);
        EXPECT_EQ(client->decrypt(path), static_cast<std::int32_t>(path.size()));
    }
}

TEST_F(FinderExtensionDBusTest, APathThatIsNoUTF8IsRepairedOnTheWay) {
    const auto server = startServer();
    const auto client = startPatientClient();
    const auto records = client->getFileFilters("/caf\xe9/f");
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[0].at("Name"), "/caf\xef\xbf\xbd/f");
}

TEST_F(FinderExtensionDBusTest, APathTooLargeToBeSentGetsTheNeutralAnswer) {
    const auto server = startServer();
    const auto client = startClient();
    for (const std::string& path : {std::string(17 << 20, 'x'), std::string(11 << 20, '\xff')}) {
        EXPECT_THAT(client->getFileFilters(path), IsEmpty());
    }
    EXPECT_TRUE(WaitFor([&] {
        const auto lines = systemLog.lines();
        return std::ranges::count_if(lines, [](const std::string& line) {
                   return line.find("too large") != std::string::npos;
               }) == 2;
    })) << "what is wrong grows when it is repaired";
    const auto patient = startPatientClient();
    EXPECT_THAT(patient->allowedExtensions(), SizeIs(2));
}

TEST_F(FinderExtensionDBusTest, TenThousandRecordsArriveInTheirOrder) {
    for (int i = 0; i < 10'000; ++i) {
        scanner->many.push_back({{"Name", "classifier " + std::to_string(i)},
                                 {"MatchCount", std::to_string(i)},
                                 {"costUsd", "0.25"},
                                 {"SensitiveType", "1"}});
    }
    const auto server = startServer();
    const auto client = startPatientClient();
    EXPECT_EQ(client->getFileFilters("/many"), scanner->many);
}

TEST_F(FinderExtensionDBusTest, AFailingScanIsTheCallersNeutralAnswerAndNothingElse) {
    const auto server = startServer();
    const auto client = startPatientClient();
    EXPECT_THAT(client->getFileFilters("/fail"), IsEmpty());
    EXPECT_TRUE(WaitFor([&] {
        return log.count("Message com.tessarin.FinderExtension.GetScanResult(s) of") == 1 &&
               log.count("failed: cannot scan") == 1;
    }));
    EXPECT_THAT(client->allowedExtensions(), SizeIs(2));
}

TEST_F(FinderExtensionDBusTest, WhateverAScannerThrowsIsAnErrorForItsCaller) {
    const auto server = startServer();
    RawPeer client(bus.address());
    for (const char* method : {"GetScanResult", "Decrypt"}) {
        const auto answer = client.call(
            RawPeer::message(kFinder, kFinderPath, kFinder, method, {QStringLiteral("/fail/oddly")}));
        EXPECT_EQ(answer.errorName().toStdString(), "org.freedesktop.DBus.Error.Failed") << method;
        EXPECT_EQ(answer.errorMessage().toStdString(), "not a standard exception") << method;
    }
    const auto next =
        client.call(RawPeer::message(kFinder, kFinderPath, kFinder, "Decrypt", {QStringLiteral("1234567")}));
    EXPECT_EQ(next.arguments(), QVariantList{7}) << "the service goes on";
}

TEST_F(FinderExtensionDBusTest, OneClientsSlowScanDoesNotHoldUpAnother) {
    const auto server = startServer();
    const auto slow = startClient();
    const auto quick = startPatientClient();
    EXPECT_THAT(slow->getFileFilters("/wait"), IsEmpty());
    ASSERT_TRUE(WaitFor([&] { return scanner->waiting == 1; }));
    EXPECT_THAT(slow->allowedExtensions(), IsEmpty()) << "its own requests are served in order";
    EXPECT_THAT(quick->getFileFilters("/a"), SizeIs(2));
    EXPECT_EQ(scanner->waiting, 1);
    scanner->released = true;
    EXPECT_TRUE(WaitFor([&] { return slow->allowedExtensions().size() == 2; }))
        << "the late answers did no harm";
}

TEST_F(FinderExtensionDBusTest, AnswersTheMainThreadWithoutItsEventLoop) {
    const auto server = startServer();
    const auto client = startPatientClient();
    // No event of the main thread is processed between these.
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(client->decrypt(std::string(static_cast<std::size_t>(i), 'x')), i);
    }
}

TEST_F(FinderExtensionDBusTest, AnswersSeveralThreadsOfOneClientWithoutMixingThemUp) {
    const auto server = startServer();
    const auto client = startPatientClient();
    std::atomic<int> wrong{0};
    fake::InThreads(4, [&](int t) {
        for (int i = 0; i < 100; ++i) {
            const std::string path = "/" + std::to_string(t) + "/" + std::to_string(i);
            const auto records = client->getFileFilters(path);
            wrong += records.size() == 2 && records[0].at("Name") == path ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST_F(FinderExtensionDBusTest, LogLinesArriveInTheServicesLogInTheirOrder) {
    auto server = startServer();
    {
        const auto client = startPatientClient();
        for (int i = 0; i < 200; ++i) {
            client->sendLogMessage("line " + std::to_string(i), "Warn");
        }
        client->getUIVisibilityStatuses();  // answered after what came before
        server->stop();
    }
    const std::weak_ptr<cmn::FinderExtensionObjCXPCServer> weakServer = server;
    server.reset();
    ASSERT_TRUE(WaitFor([&] { return weakServer.expired(); }));
    auto lines = fake::ReadLines(folder / "com.tessarin.finderExtension_0.log");
    std::erase_if(lines, [](const std::string& line) { return line.find("] line ") == std::string::npos; });
    ASSERT_THAT(lines, SizeIs(200));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_THAT(lines[i], testing::EndsWith("] line " + std::to_string(i)));
    }
}

}  // namespace
