#include <atomic>
#include <thread>

#include "UserAgentBusFixture.h"

// Both ends of the user agent service together.
namespace {

using namespace std::chrono_literals;
using fake::WaitFor;

using UserAgentDBusTest = UserAgentBusFixture;

TEST_F(UserAgentDBusTest, BothEndsExchangeReportsAndQuestions) {
    const auto server = startServer();
    const auto client = startClient();
    ASSERT_TRUE(WaitFor([&] { return client->connected() && log.count("URLExtractor has been set") == 1; }));
    for (int i = 0; i < 100; ++i) {
        client->sendURL("https://example.com/" + std::to_string(i), "Safari", i);
    }
    ASSERT_TRUE(WaitFor([&] { return reports.count() == 100; }));
    EXPECT_EQ(reports.all()[99], "Safari 99 https://example.com/99");
    EXPECT_EQ(reporters.last().value().userID, geteuid());
    EXPECT_EQ(reporters.last()->processID, getpid());
    EXPECT_EQ(server->getURL("Google Chrome (Beta)"), "url of Google Chrome");
    EXPECT_EQ(server->getURL("Firefox"), "");
}

TEST_F(UserAgentDBusTest, TheDelegateIsAskedOffTheMainThread) {
    const auto server = startServer();
    std::atomic<bool> onMain{true};
    const auto client = startClient([&, main = std::this_thread::get_id()](const std::string&) {
        onMain = std::this_thread::get_id() == main;
        return std::string("u");
    });
    ASSERT_TRUE(WaitFor([&] { return log.count("URLExtractor has been set") == 1; }));
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "u"; }));
    EXPECT_FALSE(onMain);
}

TEST_F(UserAgentDBusTest, AnExtractorThatDoesNotAnswerInTimeGivesTheEmptyURL) {
    const auto server = startServer();
    std::atomic<bool> release{false};
    const auto client = startClient([&](const std::string&) {
        EXPECT_TRUE(WaitFor([&] { return release.load(); }));
        return std::string("too late");
    });
    ASSERT_TRUE(WaitFor([&] { return log.count("URLExtractor has been set") == 1; }));
    client->sendURL("https://example.com/", "Safari", 1);  // arrives after the extractor is in place
    ASSERT_TRUE(WaitFor([&] { return reports.count() == 1; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(server->getURL("Safari"), "");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 3s * kHurry);
    release = true;
    EXPECT_TRUE(WaitFor([&] { return server->getURL("Safari") == "too late"; })) << "the connection lives on";
}

TEST_F(UserAgentDBusTest, ReportsNeverWaitWhateverTheStateOfTheDaemon) {
    const auto start = std::chrono::steady_clock::now();
    const auto client = startClient();  // nobody there yet
    for (int i = 0; i < 1000; ++i) {
        client->sendURL("https://example.com/", "Safari", i);
    }
    bus.freeze();
    const auto frozen = startClient();
    for (int i = 0; i < 1000; ++i) {
        client->sendURL("https://example.com/", "Safari", i);
        frozen->sendURL("https://example.com/", "Safari", i);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    bus.thaw();
}

}  // namespace
