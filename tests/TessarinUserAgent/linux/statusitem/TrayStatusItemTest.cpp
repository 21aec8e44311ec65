#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QMenu>
#include <chrono>
#include <cstdlib>
#include <exception>

#include "StatusItemFixture.h"
#include "statusitem/BusTrayIcon.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

using statusitem::PanelStandIn;
using statusitem::SessionBus;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using useragent::StatusImage;
using namespace std::chrono_literals;

namespace {

class TrayStatusItemTest : public statusitem::StatusItemFixture {
 protected:
    // Events of the application run; nothing is expected to happen.
    static void runEvents() {
        fake::WaitFor([] { return false; }, 300ms);
    }
};

TEST_F(TrayStatusItemTest, IsWhatAPanelNeeds) {
    PanelStandIn panel(address());
    const std::string name = createItemIn(panel);
    ASSERT_NE(name, "");
    EXPECT_EQ(panel.property(name, "Id").toString(), QStringLiteral("com.tessarin.UserAgent"));
    EXPECT_EQ(panel.property(name, "Title").toString(), QStringLiteral("Tessarin User Agent"));
    EXPECT_TRUE(panel.property(name, "ItemIsMenu").toBool());
    EXPECT_EQ(panel.property(name, "Category").toString(), QStringLiteral("ApplicationStatus"));
    EXPECT_EQ(panel.property(name, "Status").toString(), QStringLiteral("Active"));
    EXPECT_EQ(panel.toolTip(name), "Tessarin User Agent");
    std::vector<int> sizes;
    for (const QImage& image : panel.pixmaps(name)) {
        sizes.push_back(image.width());
        EXPECT_EQ(image.width(), image.height());
    }
    for (const int size : {16, 22, 24, 32, 44, 48}) {
        EXPECT_THAT(sizes, Contains(size));
    }
}

TEST_F(TrayStatusItemTest, RedStateIsShownAsPictureAndInWords) {
    PanelStandIn panel(address());
    const std::string name = createItemIn(panel);
    const std::vector<QImage> normal = panel.pixmaps(name);
    ASSERT_THAT(normal, Not(IsEmpty()));
    item->setImage(StatusImage::menuIconRed);
    EXPECT_THAT(panel.signalsOf(name), UnorderedElementsAre("NewTitle", "NewIcon", "NewToolTip"));
    for (const char* const words : {"Title", "IconAccessibleDesc"}) {
        EXPECT_EQ(panel.property(name, words).toString(),
                  QStringLiteral("Tessarin: full disk access is missing"));
    }
    EXPECT_EQ(panel.toolTip(name), "Tessarin: full disk access is missing");
    EXPECT_NE(panel.pixmaps(name), normal);
    item->setImage(StatusImage::menuIcon);
    EXPECT_EQ(panel.toolTip(name), "Tessarin User Agent");
    EXPECT_EQ(panel.pixmaps(name), normal);
}

TEST_F(TrayStatusItemTest, ServiceThatDoesNotAnswerIsRedInWordsOfItsOwn) {
    PanelStandIn panel(address());
    const std::string name = createItemIn(panel);
    item->setImage(StatusImage::menuIconRed);
    const std::vector<QImage> red = panel.pixmaps(name);
    item->setImage(StatusImage::menuIconRedUnanswered);
    for (const char* const words : {"Title", "IconAccessibleDesc"}) {
        EXPECT_EQ(panel.property(name, words).toString(),
                  QStringLiteral("Tessarin: the protection service does not answer"));
    }
    EXPECT_EQ(panel.toolTip(name), "Tessarin: the protection service does not answer");
    EXPECT_EQ(panel.pixmaps(name), red);
}

TEST_F(TrayStatusItemTest, SameImageAgainIsNotToldToThePanel) {
    PanelStandIn panel(address());
    const std::string name = createItemIn(panel);
    item->setImage(StatusImage::menuIconRed);
    EXPECT_THAT(panel.signalsOf(name), Not(IsEmpty()));
    panel.forgetSignals();
    item->setImage(StatusImage::menuIconRed);
    item->setVisible(true);
    EXPECT_THAT(panel.signalsOf(name), IsEmpty());
    EXPECT_EQ(panel.items(), std::vector{name});
}

TEST_F(TrayStatusItemTest, GoesAndComesWithItsVisibility) {
    PanelStandIn panel(address());
    const std::string name = createItemIn(panel);
    ASSERT_NE(name, "");
    item->setVisible(false);
    EXPECT_TRUE(panel.waitForNoItem());
    item->setImage(StatusImage::menuIconRed);
    item->setVisible(true);
    EXPECT_EQ(panel.toolTip(panel.waitForItem()), "Tessarin: full disk access is missing");
    item.reset();
    EXPECT_TRUE(panel.waitForNoItem());
}

TEST_F(TrayStatusItemTest, AppearsWhenThePanelComesLate) {
    createItem();
    item->setImage(StatusImage::menuIconRed);
    runEvents();
    PanelStandIn panel(address());
    EXPECT_EQ(panel.toolTip(panel.waitForItem()), "Tessarin: full disk access is missing");
}

TEST_F(TrayStatusItemTest, StaysHiddenWhenThePanelComes) {
    createItem();
    item->setVisible(false);
    PanelStandIn panel(address());
    runEvents();
    EXPECT_THAT(panel.items(), IsEmpty());
    item->setVisible(true);
    EXPECT_NE(panel.waitForItem(), "");
}

TEST_F(TrayStatusItemTest, ComesBackEachTimeThePanelIsRestarted) {
    createItem();
    fillMenu(true);
    runEvents();
    for (int round = 0; round < 3; ++round) {
        PanelStandIn panel(address());
        const std::string name = panel.waitForItem();
        ASSERT_NE(name, "") << round;
        EXPECT_EQ(panel.layout(name).size(), 7U);
    }
}

TEST_F(TrayStatusItemTest, IsThereOnceWhenThePanelComesAtTheSameMoment) {
    createItem();
    PanelStandIn panel(address());
    const auto isOurs = [&] {
        try {
            return panel.property(panel.items().at(0), "Title").toString() ==
                   QStringLiteral("Tessarin User Agent");
        } catch (const std::exception&) {
            return false;  // none yet, or it has just gone
        }
    };
    EXPECT_TRUE(fake::WaitFor(isOurs));
    EXPECT_TRUE(fake::WaitFor([&] { return panel.items().size() == 1 && isOurs(); }));
}

TEST_F(TrayStatusItemTest, ComesWithTheHostOfAWatcherThatHadNone) {
    PanelStandIn panel(address(), {.hasHost = false});
    createItem();
    EXPECT_TRUE(fake::WaitFor([&] { return panel.questions() > 0; }));
    runEvents();
    EXPECT_THAT(panel.items(), IsEmpty());
    panel.setHost(true);
    EXPECT_NE(panel.waitForItem(), "");
    panel.setHost(false);
    EXPECT_TRUE(panel.waitForNoItem());
    panel.setHost(true);
    EXPECT_NE(panel.waitForItem(), "");
}

TEST_F(TrayStatusItemTest, PanelThatHangsIsWaitedForWithoutHoldingUpAnything) {
    PanelStandIn panel(address(), {.answers = false});
    createItem();
    EXPECT_TRUE(fake::WaitFor([&] { return panel.questions() > 0; }));
    item->setImage(StatusImage::menuIconRed);
    item->setVisible(false);
    item->setVisible(true);
    runEvents();
    EXPECT_LE(panel.questions(), 2) << "it is asked whether it is there, and nothing else";
    panel.answerAgain();
    EXPECT_EQ(panel.toolTip(panel.waitForItem()), "Tessarin: full disk access is missing");
}

TEST_F(TrayStatusItemTest, RegistersAgainWhenTheBusWasLostAndIsBack) {
    fake::LogCapture log;
    fake::PrivateBus other;
    bus.address = other.address();
    bus.retryPause = 20ms;
    fillMenu(true);
    createItem();
    for (int round = 0; round < 3; ++round) {
        {
            PanelStandIn panel(other.address());
            const std::string name = panel.waitForItem();
            ASSERT_NE(name, "") << round;
            EXPECT_EQ(panel.layout(name).size(), 7U);
            panel.forgetSignals();
            item->setImage(round % 2 == 0 ? StatusImage::menuIconRed : StatusImage::menuIcon);
            EXPECT_THAT(panel.signalsOf(name), UnorderedElementsAre("NewTitle", "NewIcon", "NewToolTip"));
            other.kill();
        }
        item->setVisible(false);
        item->setVisible(true);
        other.start();
    }
    EXPECT_FALSE(log.contains(" -- failed"));
}

TEST_F(TrayStatusItemTest, ItemThatAloneLosesItsConnectionRegistersAgain) {
    fake::LogCapture log;
    fake::PrivateBus other;
    const useragent::SessionBusPlace place{bus.loop, other.address(), 20ms};
    auto panel = std::make_unique<PanelStandIn>(other.address());
    useragent::BusTrayIcon icon(place, *menu, StatusImage::menuIconRed, 1min, [] {});
    EXPECT_NE(panel->waitForItem(), "");
    other.kill();
    EXPECT_TRUE(fake::WaitFor([&] { return log.contains("The status item is not on the session bus: "); }));
    other.start();
    panel = std::make_unique<PanelStandIn>(other.address());
    EXPECT_EQ(panel->toolTip(panel->waitForItem()), "Tessarin: full disk access is missing");
}

TEST_F(TrayStatusItemTest, BusThatHangsHoldsUpNothing) {
    PanelStandIn panel(address());
    const std::string name = createItemIn(panel);
    ASSERT_NE(name, "");
    SessionBus().freeze();
    const auto begin = std::chrono::steady_clock::now();
    item->setImage(StatusImage::menuIconRed);
    fillMenu(false);
    item->setVisible(false);
    runEvents();
    item->setVisible(true);
    runEvents();
    item.reset();
    createItem();
    runEvents();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s)
        << "a bus's answer is waited for longer than that";
    SessionBus().thaw();
    item->setImage(StatusImage::menuIconRed);
    EXPECT_EQ(panel.toolTip(panel.waitForItem()), "Tessarin: full disk access is missing");
}

// Each in a process of its own: the bus that a process had at its start cannot be had again.
using TrayStatusItemDeathTest = TrayStatusItemTest;

TEST_F(TrayStatusItemDeathTest, NothingFailsWithoutASessionBus) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const fake::Environment withoutBus(statusitem::kWithoutBus, "1");
    EXPECT_EXIT(
        {
            createItem();
            item->setImage(StatusImage::menuIconRed);
            item->setVisible(false);
            item->setVisible(true);
            runEvents();
            menu->drawnMenu().popup(QPoint(5, 5));
            runEvents();
            item.reset();
            std::_Exit(calls.size() == 1 ? 42 : 1);
        },
        testing::ExitedWithCode(42), "");
}

TEST_F(TrayStatusItemDeathTest, NothingFailsWhenTheSessionBusIsLost) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            auto panel = std::make_unique<PanelStandIn>(address());
            const bool shown = !createItemIn(*panel).empty();
            SessionBus().kill();
            panel.reset();
            item->setImage(StatusImage::menuIconRed);
            fillMenu(false);
            runEvents();
            item->setVisible(false);
            item->setVisible(true);
            item->setImage(StatusImage::menuIcon);
            runEvents();
            item.reset();
            std::_Exit(shown ? 42 : 1);
        },
        testing::ExitedWithCode(42), "");
}

}  // namespace
