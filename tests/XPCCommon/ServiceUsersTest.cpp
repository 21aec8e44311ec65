#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "BusUsers.h"
#include "HostProcess.h"
#include "SealedFile.h"
#include "ServiceNames.h"
#include "common/fs.h"
#include "support/WaitFor.h"

// What the users of one machine get of the service host, and of each other through it.
namespace {

constexpr const char* kAlice = BusUsers::kFirst;
constexpr const char* kBob = BusUsers::kSecond;

class ServiceUsersTest : public testing::Test {
 protected:
    void SetUp() override {
        if (!BusUsers::canBePlayed()) {
            GTEST_SKIP() << "only root can play several users";
        }
        std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
        std::ofstream(folder / "classifiers.json")
            << R"({"Classifiers": [{"Name": "Secret", "Pattern": "secret"}]})";
        bus = std::make_unique<fake::PrivateBus>(fake::PrivateBus::OfSystem{.policy = TESSARIN_BUS_POLICY});
        users = std::make_unique<BusUsers>(bus->address());
        host = std::make_unique<HostProcess>(
            bus->address(),
            std::vector<std::string>{"--json", "--log-file", (folder / "host").string(), "--classifiers",
                                     (folder / "classifiers.json").string()});
        ASSERT_TRUE(host->isReady()) << host->process().errors();
    }

    // A file of that user's, which only he may read; a folder of his, which others may enter.
    std::filesystem::path fileOf(const char* user, const std::string& content = "a secret") const {
        const std::filesystem::path home = folder / user;
        std::filesystem::create_directory(home);
        std::ofstream(home / "file.txt") << content;
        for (const auto& [path, mode] : {std::pair{home, 0755U}, std::pair{home / "file.txt", 0600U}}) {
            EXPECT_EQ(::chmod(path.c_str(), mode), 0);
            EXPECT_EQ(::chown(path.c_str(), BusUsers::idOf(user), BusUsers::idOf(user)), 0);
        }
        return home / "file.txt";
    }
    std::string ask(const char* user, const char* member, const std::string& path) const {
        return users->call(user, kFinder, kFinderPath, kFinder, member, {"s", path});
    }
    std::unique_ptr<fake::ChildProcess> startAgent(const char* user, const std::string& url) const {
        auto agent = users->start(user, {"agent", url});
        EXPECT_TRUE(agent->readLine()) << agent->errors();
        return agent;
    }
    std::string askedURL() const {
        host->process().write("getURL Safari\n");
        const auto answer = host->event("getURL");
        return answer.IsObject() ? answer["url"].GetString() : "no answer";
    }

    fake::TemporaryFolder folder;
    std::unique_ptr<fake::PrivateBus> bus;
    std::unique_ptr<BusUsers> users;
    std::unique_ptr<HostProcess> host;
};

TEST_F(ServiceUsersTest, FindingsAreForThoseWhoMayReadTheFile) {
    const auto path = fileOf(kAlice);
    EXPECT_EQ(ask(kAlice, "GetScanResult", path), "ok 1");
    EXPECT_EQ(ask(BusUsers::kRoot, "GetScanResult", path), "ok 1");
    EXPECT_EQ(ask(kBob, "GetScanResult", path), "ok 0");
    EXPECT_EQ(ask(BusUsers::kNobody, "GetScanResult", path), "ok 0");
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(ask(kBob, "GetScanResult", path), "ok 1");
    ASSERT_EQ(::chmod(path.parent_path().c_str(), 0700), 0);
    EXPECT_EQ(ask(kBob, "GetScanResult", path), "ok 0") << "what he cannot reach he cannot read";
    EXPECT_EQ(ask(kAlice, "GetScanResult", path), "ok 1");
}

TEST_F(ServiceUsersTest, DecryptionIsForThoseWhoMayWriteTheFile) {
    const std::string sealed = std::string(host::kSealLine) + "a secret";
    const auto path = fileOf(kAlice, sealed);
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    for (const char* user : {kBob, BusUsers::kNobody}) {
        EXPECT_NE(ask(user, "Decrypt", path), "ok 0") << user;
        EXPECT_EQ(cmn::FileToStr(path), sealed) << user;
    }
    EXPECT_EQ(ask(kAlice, "Decrypt", path), "ok 0");
    EXPECT_EQ(cmn::FileToStr(path), "a secret");
}

TEST_F(ServiceUsersTest, AReportComesWithItsUserWhateverItSays) {
    const auto report = [&](const char* user) {
        users->call(user, kAgent, "/com/tessarin/UserAgent", kAgent, "SendURL",
                    {"ssi", "https://example.org/", "Safari", "1"});
        return host->event("url");
    };
    for (const char* user : {kAlice, kBob}) {
        const auto event = report(user);
        ASSERT_TRUE(event.IsObject() && event.HasMember("user"));
        EXPECT_EQ(event["user"].GetInt(), static_cast<int>(BusUsers::idOf(user)));
    }
}

TEST_F(ServiceUsersTest, AUserWhoLeavesTakesNobodyElsesAgentAlong) {
    const auto alice = startAgent(kAlice, "of alice");
    const auto bob = startAgent(kBob, "of bob");
    EXPECT_EQ(askedURL(), "of bob");
    bob->closeInput();
    EXPECT_EQ(bob->wait(), 0);
    // The host may hear of it a little later.
    EXPECT_TRUE(fake::WaitInHandler([&] { return askedURL() == "of alice"; }));
}

}  // namespace
