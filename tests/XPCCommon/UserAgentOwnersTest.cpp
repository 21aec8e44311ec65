#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string_view>

#include "UserAgentBusFixture.h"

namespace {

// Of a directory service that does not answer while the mutex is held.
struct {
    std::mutex mutex;
    std::atomic<int> asked{0};
} slowUsers;

}  // namespace

// Takes the place of the system's for the users of system buses.
extern "C" int getpwnam_r(const char* name, passwd* entry, char* buffer, std::size_t size, passwd** found) {
    if (std::string_view(name) == "messagebus" || std::string_view(name) == "dbus") {
        ++slowUsers.asked;
        const std::lock_guard lock(slowUsers.mutex);
        *found = nullptr;
        return 0;
    }
    static const auto real = reinterpret_cast<decltype(&getpwnam_r)>(::dlsym(RTLD_NEXT, "getpwnam_r"));
    return real(name, entry, buffer, size, found);
}

// Whose the user agent service is.
namespace {

using fake::RawPeer;
using fake::WaitFor;
using testing::SizeIs;

using UserAgentOwnersTest = UserAgentBusFixture;

// The daemon wants to know the name of its user.
constexpr unsigned kNobody = 65'534;

class UserAgentOnNobodysBusTest : public UserAgentBusFixture {
 protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can play several users";
        }
        bus.kill();
        bus.startAs(kNobody);
    }
};

TEST_F(UserAgentOwnersTest, AnAgentForRootsServicesAloneKnowsWhoseTheServiceIs) {
    const auto server = startServer();
    const auto client = startClient([](const auto&) { return "url"; }, cmn::ServiceOwners::root);
    if (geteuid() == 0) {
        EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "url"; }));
        EXPECT_TRUE(WaitFor([&] { return client->connected(); }));
        client->sendURL("https://example.com/", "Safari", 1);
        EXPECT_TRUE(WaitFor([&] { return reports.count() == 1; }));
    } else {
        EXPECT_TRUE(WaitFor([&] { return log.count("so it is not used") == 1; }));
        client->sendURL("https://example.com/", "Safari", 1);
        EXPECT_EQ(server->getURL("Safari"), "");
        EXPECT_THAT(reports.all(), SizeIs(0));
    }
}

TEST_F(UserAgentOnNobodysBusTest, NoServiceIsTakenForRoots) {
    const auto server = startServer();
    const auto trusting = startClient();
    ASSERT_TRUE(
        WaitFor([&] { return log.count("run by the user with the id 65534 and not by root: ") == 1; }));
    EXPECT_EQ(trusting->connection()->peer().value().userID, kNobody);
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "url of Safari"; }));
    const auto client = startClient([](const auto&) { return "url"; }, cmn::ServiceOwners::root);
    ASSERT_TRUE(WaitFor([&] { return log.count("and not by root, so it is not used") == 1; }));
    client->sendURL("https://example.com/", "Safari", 1);
    EXPECT_EQ(log.count("Failed to get remote object -- %s"), 1U);
    EXPECT_FALSE(client->connected());
}

TEST_F(UserAgentOnNobodysBusTest, ADatabaseOfUsersThatDoesNotAnswerHoldsUpNoOtherConnection) {
    const auto server = startServer();
    slowUsers.mutex.lock();
    const auto client = startClient();
    const bool asked = WaitFor([&] { return slowUsers.asked > 0; });
    RawPeer other(bus.address());
    const QDBusMessage version = other.call(message("Version"));
    const bool known = client->connection()->peer().has_value();
    slowUsers.mutex.unlock();
    EXPECT_TRUE(asked);
    EXPECT_EQ(version.arguments(), QVariantList{QStringLiteral("1.0")}) << "of the same loop";
    EXPECT_FALSE(known) << "nobody is taken for root's meanwhile";
    ASSERT_TRUE(WaitFor([&] { return client->connection()->peer().has_value(); }));
    EXPECT_EQ(client->connection()->peer()->userID, kNobody);
    EXPECT_TRUE(WaitFor([&] { return client->connected(); }));
}

}  // namespace
