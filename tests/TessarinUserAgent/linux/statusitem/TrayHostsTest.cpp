#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "StatusItemFixture.h"
#include "statusitem/TrayHosts.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

using statusitem::PanelStandIn;
using statusitem::SessionBus;
using testing::ElementsAre;
using testing::IsEmpty;
using useragent::TrayHosts;
using useragent::TrayRoad;
using namespace std::chrono_literals;

namespace {

class TrayHostsTest : public testing::Test {
 protected:
    ~TrayHostsTest() override { bus.loop->stop(); }

    bool waitForAnswers(std::size_t count) {
        return fake::WaitFor([&] { return answers.size() >= count; });
    }

    useragent::SessionBusPlace bus{std::make_shared<cmn::bus::Loop>(), SessionBus().address(), 20ms};
    std::vector<TrayRoad> answers;
    std::function<void(TrayRoad)> record = [this](TrayRoad road) { answers.push_back(road); };
};

TEST_F(TrayHostsTest, WithoutAWatcherOnlyTheWindowSystemIsLeft) {
    TrayHosts hosts(bus, record);
    hosts.ask();
    EXPECT_THAT(answers, IsEmpty()) << "it answers from the event loop";
    EXPECT_TRUE(waitForAnswers(1));
    EXPECT_THAT(answers, ElementsAre(TrayRoad::windowSystem));
}

TEST_F(TrayHostsTest, TellsWhenAWatcherComesAndGoes) {
    TrayHosts hosts(bus, record);
    {
        PanelStandIn panel(SessionBus().address());
        EXPECT_TRUE(waitForAnswers(1));
        EXPECT_EQ(answers.back(), TrayRoad::sessionBus);
    }
    EXPECT_TRUE(fake::WaitFor([&] { return answers.back() == TrayRoad::windowSystem; }));
}

TEST_F(TrayHostsTest, SilentWatcherIsAskedAgainAndSaidOnce) {
    fake::LogCapture log;
    PanelStandIn panel(SessionBus().address(), {.answers = false});
    TrayHosts hosts(bus, record, 100ms);
    hosts.ask();
    EXPECT_TRUE(fake::WaitFor([&] { return panel.questions() >= 3; }));
    EXPECT_THAT(answers, IsEmpty());
    panel.answerAgain();
    EXPECT_TRUE(waitForAnswers(1));
    EXPECT_EQ(answers.front(), TrayRoad::sessionBus);
    EXPECT_EQ(log.count("The desktop's status area does not answer; the status item waits for it"), 1U);
}

TEST_F(TrayHostsTest, OnlyTheNewestQuestionIsAnswered) {
    PanelStandIn panel(SessionBus().address());
    TrayHosts hosts(bus, record);
    hosts.ask();
    hosts.ask();
    hosts.ask();
    EXPECT_TRUE(waitForAnswers(1));
    fake::WaitFor([] { return false; }, 200ms);
    EXPECT_THAT(answers, ElementsAre(TrayRoad::sessionBus));
}

TEST_F(TrayHostsTest, BusThatIsLostLeavesTheWindowSystemUntilItIsBack) {
    fake::PrivateBus other;
    bus.address = other.address();
    TrayHosts hosts(bus, record);
    for (int round = 0; round < 2; ++round) {
        const PanelStandIn panel(other.address());
        EXPECT_TRUE(
            fake::WaitFor([&] { return !answers.empty() && answers.back() == TrayRoad::sessionBus; }));
        other.kill();
        EXPECT_TRUE(fake::WaitFor([&] { return answers.back() == TrayRoad::windowSystem; }));
        hosts.ask();
        const std::size_t before = answers.size();
        EXPECT_TRUE(waitForAnswers(before + 1)) << "also while there is no bus";
        EXPECT_EQ(answers.back(), TrayRoad::windowSystem);
        other.start();
    }
}

TEST_F(TrayHostsTest, BusThatComesLateIsFound) {
    fake::PrivateBus other;
    other.kill();
    bus.address = other.address();
    TrayHosts hosts(bus, record);
    EXPECT_TRUE(waitForAnswers(1));
    EXPECT_EQ(answers.back(), TrayRoad::windowSystem);
    other.start();
    const PanelStandIn panel(other.address());
    EXPECT_TRUE(fake::WaitFor([&] { return answers.back() == TrayRoad::sessionBus; }));
}

}  // namespace
