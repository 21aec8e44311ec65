#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusMessage>
#include <atomic>
#include <thread>

#include "linux_interface/ApplicationService.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using useragent::ApplicationService;
using useragent::LaunchRequest;

constexpr auto kPatience = 20s;

QDBusConnection Connect(const fake::PrivateBus& bus) {
    static int number = 0;
    return QDBusConnection::connectToBus(QString::fromStdString(bus.address()),
                                         "application-test-" + QString::number(++number));
}

class ApplicationServiceTest : public testing::Test {
 protected:
    // Hands over from a thread of its own while this one serves.
    std::string handOver(const LaunchRequest& request, std::chrono::milliseconds deadline = kPatience) {
        ApplicationService second(Connect(bus));
        EXPECT_EQ(second.claim(), ApplicationService::Role::second);
        std::string failure;
        std::atomic<bool> done = false;
        std::thread launcher([&] {
            failure = second.handOver(request, deadline);
            done = true;
            done.notify_all();
        });
        while (!done) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        }
        launcher.join();
        return failure;
    }
    void handle(ApplicationService& service) {
        service.setHandler([this](const LaunchRequest& request) {
            for (const std::string& url : request.urls) {
                urls.push_back(url);
            }
            tokens.push_back(request.activationToken);
        });
    }

    fake::PrivateBus bus;
    std::vector<std::string> urls;
    std::vector<std::string> tokens;
};

TEST_F(ApplicationServiceTest, TheFirstOwnsTheNameAndTheOthersHandOver) {
    ApplicationService first(Connect(bus));
    EXPECT_EQ(first.claim(), ApplicationService::Role::first);
    handle(first);
    EXPECT_EQ(handOver({{"tessarin-scheme://a", "tessarin-scheme://b"}, "token-1"}), "");
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a", "tessarin-scheme://b"));
    EXPECT_THAT(tokens, ElementsAre("token-1"));
}

TEST_F(ApplicationServiceTest, ALaunchWithoutUrlsChangesNothing) {
    ApplicationService first(Connect(bus));
    first.claim();
    handle(first);
    EXPECT_EQ(handOver({}), "");
    EXPECT_TRUE(tokens.empty());
}

TEST_F(ApplicationServiceTest, RequestsThatComeBeforeThereIsAHandlerWaitForIt) {
    ApplicationService first(Connect(bus));
    first.claim();
    EXPECT_EQ(handOver({{"tessarin-scheme://a"}, {}}), "");
    EXPECT_TRUE(urls.empty());
    handle(first);
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a"));
}

TEST_F(ApplicationServiceTest, AFirstThatDoesNotAnswerIsGivenUp) {
    // The name is taken by a connection that nobody serves.
    const QDBusConnection mute = Connect(bus);
    QDBusConnection(mute).registerService(useragent::kApplicationName);
    EXPECT_NE(handOver({{"tessarin-scheme://a"}, {}}, 200ms), "");
}

TEST_F(ApplicationServiceTest, WithoutABusTheProgramIsAlone) {
    ApplicationService service{QDBusConnection(QString())};
    EXPECT_EQ(service.claim(), ApplicationService::Role::alone);
}

TEST_F(ApplicationServiceTest, AnOverlongTokenAndMoreUrlsThanAnybodyOpensAreCut) {
    ApplicationService first(Connect(bus));
    first.claim();
    handle(first);
    EXPECT_EQ(handOver({std::vector<std::string>(150, "x"), std::string(2000, 't')}), "");
    EXPECT_EQ(urls.size(), 100U);
    EXPECT_THAT(tokens, ElementsAre(""));
}

TEST_F(ApplicationServiceTest, AHandlerThatFailsIsLoggedAndAnswered) {
    fake::LogCapture log;
    ApplicationService first(Connect(bus));
    first.claim();
    first.setHandler([](const LaunchRequest&) { throw std::runtime_error("no window"); });
    EXPECT_EQ(handOver({{"tessarin-scheme://a"}, {}}), "");
    EXPECT_TRUE(log.contains("A request to open something failed: no window"));
}

TEST_F(ApplicationServiceTest, TheTokenOfTheLaunchIsTakenOutOfTheEnvironment) {
    qputenv("DESKTOP_STARTUP_ID", "startup");
    qputenv("XDG_ACTIVATION_TOKEN", "activation");
    EXPECT_EQ(useragent::TakeActivationToken(), "activation");
    EXPECT_FALSE(qEnvironmentVariableIsSet("DESKTOP_STARTUP_ID"));
    EXPECT_EQ(useragent::TakeActivationToken(), "");
}

}  // namespace
