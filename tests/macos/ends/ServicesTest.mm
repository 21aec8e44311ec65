#include <gmock/gmock.h>
#include <unistd.h>

#import "AnonymousTransport.h"
#import "RunLoop.h"
#include "common/SystemUtils.h"
#include "common/proto_settings.h"
#import "macos_usercommon/MacDispatch.h"
#include "support/LogCapture.h"
#include "support/Recorder.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"
#include "xpccommon/FinderExtensionXPCClient.h"
#include "xpccommon/UserAgentXPCClient.h"
#include "xpccommon/UserAgentXPCServer.h"

// Both services, from the agent's clients to the daemon's servers and back.
namespace {

using fake::RunUntil;
using testing::ElementsAre;
using testing::Pair;

class ServicesTest : public testing::Test {
 protected:
    fake::LogCapture log;
    const std::shared_ptr<cmn::MacDispatch> dispatch = std::make_shared<cmn::MacDispatch>();
    const std::shared_ptr<fake::AnonymousTransport> transport = std::make_shared<fake::AnonymousTransport>();
};

TEST_F(ServicesTest, AReportReachesTheDaemonWithTheSenderAndAQuestionTheAgent) {
    const fake::Recorder<std::string> reports;
    const fake::Recorder<std::optional<cmn::XPCPeer>> senders;
    const auto server = cmn::CreateUserAgentXPCServer(
        [=](const std::string& url, const std::string& browser, std::int32_t pid, const auto& peer) {
            reports.add(browser + " " + std::to_string(pid) + " " + url);
            senders.add(peer);
        },
        dispatch, transport);
    const auto client = cmn::CreateUserAgentXPCClient(
        [](const std::string& browser) { return "https://example.com/" + browser; }, dispatch, transport);
    ASSERT_TRUE(RunUntil([&] { return client->connected(); }));
    client->sendURL("https://example.com/\xC3\xA4", "Safari", 42);
    ASSERT_TRUE(RunUntil([&] { return reports.count() == 1; }));
    EXPECT_THAT(reports.all(), ElementsAre("Safari 42 https://example.com/\xC3\xA4"));
    ASSERT_TRUE(senders.last());
    EXPECT_EQ(senders.last()->userID, geteuid());
    EXPECT_EQ(senders.last()->processID, getpid());
    EXPECT_TRUE(RunUntil([&] { return server->getURL("Safari") == "https://example.com/Safari"; }));
}

class Scanner final : public cmn::IFinderExtensionOperations {
 public:
    bool CheckEncryptionStatus(const std::string& path, const std::optional<cmn::XPCPeer>&) override {
        return path == "/sealed";
    }
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& asker) override {
        return {{{"Name", path}, {"User", asker ? std::to_string(asker->userID) : "unknown"}}, {}};
    }
    std::vector<std::string> GetAllowedExtensions() override { return {"txt", "md"}; }
    int Decrypt(const std::string&, const std::optional<cmn::XPCPeer>&) override { return 7; }
};

TEST_F(ServicesTest, EveryQuestionToTheFinderExtensionServiceIsAnswered) {
    cmn::proto::TSettings settings;
    settings.Products.push_back({});
    settings.Products.back().NativeName = cmn::proto::GetCurrentProductNativeName();
    settings.Products.back().InstallPath = cmn::GetSharedPath();
    cmn::proto::SetSettings(settings);
    const auto scanner = std::make_shared<Scanner>();
    const auto server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport);
    server->setScannerService(scanner);
    server->setFullDiskAccessProbe([] { return true; });
    server->start();
    const auto client = std::make_shared<cmn::FinderExtensionXPCClient>(dispatch, transport);
    client->connect();
    ASSERT_TRUE(RunUntil([&] { return client->decrypt("/file") == 7; }));
    EXPECT_THAT(client->getFileFilters("/a \xC3\xA4"),
                ElementsAre(cmn::ScanRecord{{"Name", "/a \xC3\xA4"}, {"User", std::to_string(geteuid())}},
                            cmn::ScanRecord{}));
    EXPECT_THAT(client->allowedExtensions(), ElementsAre("txt", "md"));
    EXPECT_TRUE(client->checkFullDiskAccess());
    const fake::Recorder<bool> answers;
    client->setCompleteblock([answers](bool encrypted) { answers.add(encrypted); });
    client->checkEncryptionStatus("/sealed");
    client->checkEncryptionStatus("/open");
    EXPECT_TRUE(RunUntil([&] { return answers.count() == 2; }));
    EXPECT_THAT(answers.all(), testing::UnorderedElementsAre(true, false));
    client->stop();
    server->stop();
}

class Extractor final : public cmn::URLExtractor {
 public:
    void getURL(const std::string&, std::function<void(const std::string&)> reply) override { reply("url"); }
};

class Service final : public cmn::UserAgentProtocol {
 public:
    void version(std::function<void(const std::string&)> reply) override { reply("1"); }
    void setURLExtractor(std::shared_ptr<cmn::URLExtractor> extractor,
                         std::function<void(bool)> reply) override {
        extractor_ = std::move(extractor);
        reply(true);
    }
    void sendURL(const std::string&, const std::string&, std::int32_t) override {}

 private:
    std::shared_ptr<cmn::URLExtractor> extractor_;
};

// Accepts everybody, with a service of his own.
class Acceptor final : public cmn::XPCListenerDelegate {
 public:
    bool listenerShouldAcceptNewConnection(cmn::XPCListener&,
                                           const std::shared_ptr<cmn::XPCConnection>& peer) override {
        const auto service = std::make_shared<Service>();
        services.add(service);
        peer->setExportedInterface(cmn::CreateUserAgentInterface());
        peer->setExportedObject(service);
        peer->resume();
        return true;
    }

    const fake::Recorder<std::weak_ptr<Service>> services;
};

TEST_F(ServicesTest, AfterFiftyInvalidationsNoObjectIsLeft) {
    const auto acceptor = std::make_shared<Acceptor>();
    const auto listener = transport->createListener("name");
    listener->setDelegate(acceptor);
    listener->resume();
    std::vector<std::weak_ptr<void>> objects;
    for (int round = 0; round < 50; ++round) {
        @autoreleasepool {
            const auto connection = transport->createConnection("name", cmn::XPCConnectionOptions::none);
            const auto extractor = std::make_shared<Extractor>();
            const fake::Recorder<bool> answers;
            connection->setRemoteObjectInterface(cmn::CreateUserAgentInterface());
            connection->resume();
            const auto remote = std::dynamic_pointer_cast<cmn::UserAgentProtocol>(
                connection->remoteObjectProxy([](const cmn::RemoteError&) {}, std::chrono::seconds(1)));
            ASSERT_NE(remote, nullptr);
            remote->setURLExtractor(extractor, [answers](bool accepted) { answers.add(accepted); });
            ASSERT_TRUE(RunUntil([&] { return answers.count() == 1; }));
            objects.push_back(connection);
            objects.push_back(extractor);
            objects.push_back(remote);
            connection->invalidate();
        }
    }
    for (const auto& service : acceptor->services.all()) {
        objects.push_back(service);
    }
    ASSERT_EQ(objects.size(), 200U);
    EXPECT_TRUE(RunUntil([&] {
        return std::all_of(objects.begin(), objects.end(), [](const auto& one) { return one.expired(); });
    }));
    listener->invalidate();
}

}  // namespace
