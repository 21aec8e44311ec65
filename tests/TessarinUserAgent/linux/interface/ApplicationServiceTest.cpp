#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QTimer>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "XPCCommon/BusUsers.h"
#include "interface/ApplicationService.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/RawPeer.h"
#include "support/Recorder.h"
#include "support/WaitFor.h"

namespace {

namespace bus = cmn::bus;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using useragent::ApplicationService;
using useragent::LaunchRequest;
using useragent::SessionBusPlace;

constexpr auto kPatience = 20s;

QDBusConnection Connect(const fake::PrivateBus& bus) {
    static int number = 0;
    return QDBusConnection::connectToBus(QString::fromStdString(bus.address()),
                                         "application-test-" + QString::number(++number));
}

// A launch of the program while this thread is the agent that runs: on a thread of its own.
class OtherLaunch {
 public:
    OtherLaunch(SessionBusPlace place, LaunchRequest request, std::chrono::milliseconds patience)
        : request_(std::move(request)), thread_([this, place = std::move(place), patience] {
              ApplicationService service(place);
              result_ = service.claimOrHandOver(request_, patience, [] { return true; });
              done_ = true;
          }) {}
    ~OtherLaunch() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    OtherLaunch(const OtherLaunch&) = delete;
    OtherLaunch& operator=(const OtherLaunch&) = delete;

    ApplicationService::Launch result() {
        EXPECT_TRUE(fake::WaitFor([this] { return done_.load(); }, 2 * kPatience));
        thread_.join();
        return result_;
    }
    // What nobody has taken, once there is a result.
    const LaunchRequest& left() const { return request_; }

 private:
    LaunchRequest request_;
    ApplicationService::Launch result_;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

class ApplicationServiceTest : public testing::Test {
 protected:
    ~ApplicationServiceTest() override { place.loop->stop(); }

    // Why it failed; empty when it did not.
    std::string handOver(const LaunchRequest& request, std::chrono::milliseconds patience = kPatience) {
        OtherLaunch second(place, request, patience);
        const ApplicationService::Launch result = second.result();
        EXPECT_EQ(result.role, ApplicationService::Role::second);
        return result.failure;
    }
    void handle(ApplicationService& service) {
        service.setHandler([this](const LaunchRequest& request, const ApplicationService::Done& done) {
            urls.insert(urls.end(), request.urls.begin(), request.urls.end());
            tokens.push_back(request.activationToken);
            done(0);
        });
    }
    // One that has the name, and whose requests go to `urls` and `tokens`.
    std::unique_ptr<ApplicationService> startFirst() {
        auto first = std::make_unique<ApplicationService>(place);
        EXPECT_EQ(first->claim(), ApplicationService::Role::first);
        handle(*first);
        return first;
    }
    // Waits until somebody has the name.
    bool hasOwner() {
        fake::RawPeer peer(bus.address());
        return fake::WaitFor([&] { return peer.hasOwner(useragent::kApplicationName); });
    }
    static std::vector<std::string> manyUrls(int count) {
        std::vector<std::string> many;
        for (int number = 0; number < count; ++number) {
            many.push_back("tessarin-scheme://" + std::to_string(number));
        }
        return many;
    }
    static QDBusPendingCall open(const QDBusConnection& connection, const QStringList& urls) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(useragent::kApplicationName, "/com/tessarin/TessarinUserAgent",
                                           "org.freedesktop.Application", "Open");
        message << urls << QVariantMap();
        return connection.asyncCall(message, static_cast<int>(std::chrono::milliseconds(kPatience).count()));
    }
    static QDBusPendingCall askStatus(const QDBusConnection& connection, bool withAddresses) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(useragent::kApplicationName, "/com/tessarin/TessarinUserAgent",
                                           "com.tessarin.TessarinUserAgent.Status", "Get");
        message << withAddresses;
        return connection.asyncCall(message, static_cast<int>(std::chrono::milliseconds(kPatience).count()));
    }

    fake::PrivateBus bus;
    const SessionBusPlace place{std::make_shared<cmn::bus::Loop>(), bus.address(), 20ms};
    std::vector<std::string> urls;
    std::vector<std::string> tokens;
};

TEST_F(ApplicationServiceTest, TellsProgramsOfTheSameUserHowTheAgentIs) {
    const auto first = startFirst();
    const QDBusConnection other = Connect(bus);
    const QDBusPendingCall early = askStatus(other, true);
    ASSERT_TRUE(fake::WaitFor([&] { return early.isFinished(); }, kPatience));
    EXPECT_EQ(early.error().message().toStdString(), "the agent is not running");
    std::vector<bool> asked;
    std::function<void(const std::string&)> reply;
    first->setStatusHandler([&](bool withAddresses, std::function<void(const std::string&)> done) {
        asked.push_back(withAddresses);
        reply = std::move(done);
    });
    for (const bool withAddresses : {true, false}) {
        const QDBusPendingCall question = askStatus(other, withAddresses);
        ASSERT_TRUE(fake::WaitFor([&] { return reply != nullptr; }, kPatience));
        EXPECT_FALSE(question.isFinished());
        std::thread([&] { std::exchange(reply, nullptr)("{}"); }).join();
        ASSERT_TRUE(fake::WaitFor([&] { return question.isFinished(); }, kPatience));
        EXPECT_EQ(question.reply().arguments(), QVariantList{QString("{}")});
    }
    EXPECT_THAT(asked, ElementsAre(true, false));
}

TEST_F(ApplicationServiceTest, TellsNoOtherUserHowTheAgentIs) {
    if (!BusUsers::canBePlayed()) {
        GTEST_SKIP() << "needs root to become another user";
    }
    bus.openToOthers();
    const auto first = startFirst();
    int asked = 0;
    first->setStatusHandler([&](bool, const auto& done) {
        ++asked;
        done("{}");
    });
    const auto answerTo = [&](const char* user) {
        const auto program =
            BusUsers(bus.address())
                .start(user, {"call", useragent::kApplicationName, "/com/tessarin/TessarinUserAgent",
                              "com.tessarin.TessarinUserAgent.Status", "Get", "b", "0"});
        EXPECT_TRUE(fake::WaitFor([&] { return program->wait(0ms).has_value(); }, kPatience));
        return program->readLine().value_or(program->errors());
    };
    EXPECT_EQ(answerTo(BusUsers::kNobody), "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(answerTo(BusUsers::kRoot), "ok {}");
    EXPECT_EQ(asked, 1);
}

TEST_F(ApplicationServiceTest, TheFirstOwnsTheNameAndTheOthersHandOver) {
    const auto first = startFirst();
    EXPECT_EQ(handOver({{"tessarin-scheme://a", "tessarin-scheme://b"}, "token-1"}), "");
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a", "tessarin-scheme://b"));
    EXPECT_THAT(tokens, ElementsAre("token-1", ""));
}

TEST_F(ApplicationServiceTest, AUrlWithBytesThatAreNoTextArrivesAsTheSameRequest) {
    const auto first = startFirst();
    EXPECT_EQ(handOver({{"tessarin-scheme://showProperties?path=/caf\xE9"}, ""}), "");
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://showProperties?path=/caf%E9"));
}

TEST_F(ApplicationServiceTest, ALaunchWithoutUrlsChangesNothing) {
    const auto first = startFirst();
    EXPECT_EQ(handOver({}), "");
    EXPECT_TRUE(tokens.empty());
}

TEST_F(ApplicationServiceTest, ALaunchThatFindsNobodyIsTheFirstAndKeepsItsRequest) {
    OtherLaunch launch(place, {{"tessarin-scheme://a"}, "token"}, kPatience);
    EXPECT_EQ(launch.result().role, ApplicationService::Role::first);
    EXPECT_THAT(launch.left().urls, ElementsAre("tessarin-scheme://a"));
    EXPECT_EQ(launch.left().activationToken, "token");
}

TEST_F(ApplicationServiceTest, TheNameIsFreeAsSoonAsTheFirstReleasesIt) {
    ApplicationService first(place);
    ASSERT_EQ(first.claim(), ApplicationService::Role::first);
    first.release();
    ApplicationService next(place);
    EXPECT_EQ(next.claim(), ApplicationService::Role::first);
    first.release();
    EXPECT_EQ(first.claim(), ApplicationService::Role::second) << "what is not its own it does not release";
}

TEST_F(ApplicationServiceTest, WhatTheHandlerOwnsGoesAfterTheName) {
    const QDBusConnection other = Connect(bus);
    const auto first = startFirst();
    int ended = 0;
    std::shared_ptr<void> owned(nullptr, [&](void*) {
        ++ended;
        EXPECT_FALSE(other.interface()->isServiceRegistered(useragent::kApplicationName).value());
    });
    first->setHandler([kept = std::move(owned)](const LaunchRequest&, const auto&) {});
    first->release();
    EXPECT_EQ(ended, 1);
}

TEST_F(ApplicationServiceTest, ARequestThatArrivesWhileTheFirstLeavesIsRefusedAtOnce) {
    const auto first = startFirst();
    const QDBusConnection sender = Connect(bus);
    const QDBusPendingCall request = open(sender, {"tessarin-scheme://a"});
    // Messages of one sender are passed on in order: the request is there before this is answered.
    ASSERT_TRUE(sender.interface()->isServiceRegistered(useragent::kApplicationName).value());
    first->release();
    ASSERT_TRUE(fake::WaitInHandler([&] { return request.isFinished(); }));
    EXPECT_TRUE(request.isError());
    EXPECT_EQ(request.error().type(), QDBusError::UnknownObject);
    EXPECT_THAT(urls, IsEmpty());
}

TEST_F(ApplicationServiceTest, ALaunchWhoseFirstHasLeftBecomesTheFirstWithItsRequest) {
    const auto first = startFirst();
    // As it does at its end: whoever waits for a window is refused when the name is free.
    first->setHandler([&first](const LaunchRequest&, const ApplicationService::Done& done) {
        QTimer::singleShot(0, [&first, done] {
            first->release();
            done(1);
        });
    });
    OtherLaunch second(place, {{"tessarin-scheme://a", "tessarin-scheme://b"}, "token"}, kPatience);
    EXPECT_EQ(second.result().role, ApplicationService::Role::first);
    EXPECT_THAT(second.left().urls, ElementsAre("tessarin-scheme://a", "tessarin-scheme://b"));
    EXPECT_EQ(second.left().activationToken, "token");
}

TEST_F(ApplicationServiceTest, ALaunchWhoseFirstHasLeftHandsOverToTheNextOne) {
    ApplicationService first(place);
    ApplicationService next(place);
    first.claim();
    handle(next);
    first.setHandler([&](const LaunchRequest&, const ApplicationService::Done& done) {
        first.release();
        EXPECT_EQ(next.claim(), ApplicationService::Role::first);
        done(1);
    });
    EXPECT_EQ(handOver({{"tessarin-scheme://a"}, {}}), "");
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a"));
}

TEST_F(ApplicationServiceTest, OfSeveralUrlsOnlyThoseThatAreNotOpenAreLeftToTheLaunchThatBecomesTheFirst) {
    const auto first = startFirst();
    first->setHandler([&](const LaunchRequest& request, const ApplicationService::Done& done) {
        if (urls.size() < 2) {
            urls.insert(urls.end(), request.urls.begin(), request.urls.end());
            done(0);
            return;
        }
        first->release();
        done(1);
    });
    OtherLaunch second(place, {manyUrls(5), "token"}, kPatience);
    EXPECT_EQ(second.result().role, ApplicationService::Role::first);
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://0", "tessarin-scheme://1"));
    EXPECT_THAT(second.left().urls,
                ElementsAre("tessarin-scheme://2", "tessarin-scheme://3", "tessarin-scheme://4"));
    EXPECT_EQ(second.left().activationToken, "") << "it went with the first message";
}

TEST_F(ApplicationServiceTest, ALaunchWaitsUntilItsWindowIsOpen) {
    const auto first = startFirst();
    ApplicationService::Done opened;
    first->setHandler([&](const LaunchRequest&, const ApplicationService::Done& done) { opened = done; });
    const QDBusPendingCall request = open(Connect(bus), {"tessarin-scheme://a"});
    ASSERT_TRUE(fake::WaitFor([&] { return opened != nullptr; }, kPatience));
    EXPECT_FALSE(request.isFinished());
    std::exchange(opened, nullptr)(0);
    ASSERT_TRUE(fake::WaitFor([&] { return request.isFinished(); }, kPatience));
    EXPECT_FALSE(request.isError());
}

TEST_F(ApplicationServiceTest, SeveralUrlsWaitForTheirWindowsAtOnce) {
    const auto first = startFirst();
    first->setHandler([](const LaunchRequest&, const ApplicationService::Done& done) {
        QTimer::singleShot(400ms, [done] { done(0); });
    });
    EXPECT_EQ(handOver({manyUrls(4), {}}, 1500ms), "") << "one after the other they took 1.6 seconds";
}

TEST_F(ApplicationServiceTest, WithoutAHandlerARequestIsRefused) {
    ApplicationService first(place);
    first.claim();
    EXPECT_THAT(handOver({{"tessarin-scheme://a"}, {}}), HasSubstr("not running"));
}

TEST_F(ApplicationServiceTest, AFirstThatDoesNotAnswerIsGivenUp) {
    // The name is taken by a connection that nobody serves.
    const QDBusConnection mute = Connect(bus);
    QDBusConnection(mute).registerService(useragent::kApplicationName);
    EXPECT_NE(handOver({{"tessarin-scheme://a"}, {}}, 200ms), "");
}

TEST_F(ApplicationServiceTest, WithoutABusTheProgramIsAlone) {
    ApplicationService service({place.loop, ""});
    EXPECT_EQ(service.claim(), ApplicationService::Role::alone);
}

TEST_F(ApplicationServiceTest, EachUrlIsAMessageOfItsOwnAndTheFirstHasTheToken) {
    const auto first = startFirst();
    EXPECT_EQ(handOver({manyUrls(101), "token"}), "");
    EXPECT_EQ(urls, manyUrls(101));
    std::vector<std::string> expected(101);
    expected.front() = "token";
    EXPECT_EQ(tokens, expected);
}

TEST_F(ApplicationServiceTest, AMessageWithTooManyUrlsIsRefusedWhole) {
    const auto first = startFirst();
    const QDBusPendingCall request = open(Connect(bus), QStringList(101, "tessarin-scheme://a"));
    ASSERT_TRUE(fake::WaitFor([&] { return request.isFinished(); }));
    EXPECT_EQ(request.error().type(), QDBusError::LimitsExceeded);
    EXPECT_THAT(urls, IsEmpty());
}

TEST_F(ApplicationServiceTest, WhoAsksIsToldHowManyUrlsAreNotOpened) {
    const auto first = startFirst();
    first->setHandler([](const LaunchRequest&, const ApplicationService::Done& done) { done(1); });
    EXPECT_EQ(handOver({manyUrls(5), {}}), "1 of 1 URLs are not opened; 5 URLs in all");
    const QDBusPendingCall request = open(Connect(bus), QStringList(3, "tessarin-scheme://a"));
    ASSERT_TRUE(fake::WaitFor([&] { return request.isFinished(); }));
    EXPECT_EQ(request.error().message().toStdString(), "1 of 3 URLs are not opened");
}

TEST_F(ApplicationServiceTest, AnOverlongTokenIsLeftOut) {
    const auto first = startFirst();
    EXPECT_EQ(handOver({{"tessarin-scheme://a"}, std::string(2000, 't')}), "");
    EXPECT_THAT(tokens, ElementsAre(""));
}

TEST_F(ApplicationServiceTest, AHandlerThatFailsIsLoggedAndTold) {
    fake::LogCapture log;
    const auto first = startFirst();
    first->setHandler([](const LaunchRequest&, const auto&) { throw std::runtime_error("no window"); });
    EXPECT_THAT(handOver({{"tessarin-scheme://a"}, {}}), HasSubstr("no window"));
    EXPECT_TRUE(log.contains("A request to open something failed: no window"));
}

TEST_F(ApplicationServiceTest, TheTokenOfTheLaunchIsTakenOutOfTheEnvironment) {
    qputenv("DESKTOP_STARTUP_ID", "startup");
    qputenv("XDG_ACTIVATION_TOKEN", "activation");
    EXPECT_EQ(useragent::TakeActivationToken(), "activation");
    EXPECT_FALSE(qEnvironmentVariableIsSet("DESKTOP_STARTUP_ID"));
    EXPECT_EQ(useragent::TakeActivationToken(), "");
}

// A program that has the name and answers nobody.
class FrozenFirst {
 public:
    explicit FrozenFirst(const SessionBusPlace& place) {
        connection_ = bus::Connection::open(place.loop, {.address = place.address},
                                            {[this] { ready_ = true; }, {}, questions});
        EXPECT_TRUE(fake::WaitFor([this] { return ready_.load(); }));
        const auto answer = connection_->callAndWait(
            connection_->makeCall(bus::kBusName, bus::kBusPath, bus::kBusName, "RequestName",
                                  useragent::kApplicationName, std::uint32_t{4}),
            bus::Clock::now() + kPatience);
        EXPECT_TRUE(answer && answer->readOne<std::uint32_t>());
    }

    const fake::Recorder<bus::Question> questions;

 private:
    std::atomic<bool> ready_ = false;
    std::shared_ptr<bus::Connection> connection_;
};

TEST_F(ApplicationServiceTest, AFirstThatIsFrozenIsGivenUpInTimeAndThatIsSaid) {
    FrozenFirst first(place);
    const auto begin = bus::Clock::now();
    EXPECT_EQ(handOver({manyUrls(150), {}}, 200ms), "No answer in time; 150 URLs in all");
    EXPECT_GE(bus::Clock::now() - begin, 200ms);
    EXPECT_LT(bus::Clock::now() - begin, kPatience);
    EXPECT_GE(first.questions.count(), 1U) << "it has heard of it";
}

TEST_F(ApplicationServiceTest, TheNameIsClaimedAgainWhenTheBusWasLostAndIsBack) {
    fake::LogCapture log;
    const auto first = startFirst();
    for (int round = 1; round <= 3; ++round) {
        bus.kill();
        ASSERT_TRUE(
            fake::WaitFor([&] { return log.count("The session bus is lost: ") == std::size_t(round); }));
        bus.start();
        ASSERT_TRUE(hasOwner());
        urls.clear();
        EXPECT_EQ(handOver({{"tessarin-scheme://a"}, {}}), "");
        EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a"));
    }
    first->release();
    ApplicationService next(place);
    EXPECT_EQ(next.claim(), ApplicationService::Role::first);
}

TEST_F(ApplicationServiceTest, AnAgentThatStartedWithoutTheBusClaimsTheNameWhenItComes) {
    bus.kill();
    ApplicationService first(place);
    EXPECT_EQ(first.claim(), ApplicationService::Role::alone);
    EXPECT_NE(first.refusal(), "");
    handle(first);
    bus.start();
    ASSERT_TRUE(hasOwner());
    EXPECT_EQ(handOver({{"tessarin-scheme://a"}, {}}), "");
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a"));
}

TEST_F(ApplicationServiceTest, ABusThatDoesNotAnswerIsGivenUpInTimeAndUsedWhenItDoes) {
    bus.freeze();
    const auto begin = bus::Clock::now();
    ApplicationService first(place, 100ms);
    EXPECT_EQ(first.claim(), ApplicationService::Role::alone);
    EXPECT_LT(bus::Clock::now() - begin, 3s) << "a connection that is being made is given up later";
    EXPECT_EQ(first.refusal(), "no answer in time");
    handle(first);
    bus.thaw();
    EXPECT_TRUE(hasOwner());
}

TEST_F(ApplicationServiceTest, AnAgentWhoseNameIsTakenWhileTheBusWasAwayGetsItWhenTheOtherLeaves) {
    fake::LogCapture log;
    bus.kill();
    ApplicationService first(place);
    EXPECT_EQ(first.claim(), ApplicationService::Role::alone);
    handle(first);
    bus.start();
    auto other = std::make_unique<ApplicationService>(place);
    ASSERT_EQ(other->claim(), ApplicationService::Role::first)
        << "its loop runs, that of this thread does not";
    ASSERT_TRUE(fake::WaitFor([&] {
        return log.contains("Another agent has the name on the session bus; this one waits for it");
    }));
    other.reset();
    ASSERT_TRUE(hasOwner());
    EXPECT_EQ(handOver({{"tessarin-scheme://a"}, {}}), "");
    EXPECT_THAT(urls, ElementsAre("tessarin-scheme://a"));
}

TEST_F(ApplicationServiceTest, ABusThatComesAndRefusesTheNameIsTold) {
    fake::LogCapture log;
    fake::PrivateBus refusing(fake::PrivateBus::Names::refused);
    refusing.kill();
    ApplicationService alone({place.loop, refusing.address(), place.retryPause});
    EXPECT_EQ(alone.claim(), ApplicationService::Role::alone);
    handle(alone);
    refusing.start();
    EXPECT_TRUE(
        fake::WaitFor([&] { return log.contains("The session bus does not give the agent its name: "); }));
    alone.release();
    EXPECT_EQ(log.count("does not take the agent's name back"), 0U) << "it has none";
}

TEST_F(ApplicationServiceTest, ALaunchThatIsTheSecondNeverClaimsTheNameLater) {
    ApplicationService first(place);
    ApplicationService second(place);
    ASSERT_EQ(first.claim(), ApplicationService::Role::first);
    ASSERT_EQ(second.claim(), ApplicationService::Role::second);
    bus.kill();
    bus.start();
    ASSERT_TRUE(hasOwner());
    first.release();
    fake::RawPeer peer(bus.address());
    EXPECT_FALSE(fake::WaitFor([&] { return peer.hasOwner(useragent::kApplicationName); }, 200ms));
}

}  // namespace
