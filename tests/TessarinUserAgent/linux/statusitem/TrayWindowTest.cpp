#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QApplication>
#include <QImage>
#include <QMenu>
#include <QMouseEvent>
#include <QWidget>
#include <cstdlib>
#include <memory>

#include "StatusItemFixture.h"
#include "statusitem/TrayHosts.h"
#include "support/ChildProcess.h"
#include "support/WaitFor.h"

using statusitem::PanelStandIn;
using testing::ElementsAre;
using testing::IsEmpty;
using useragent::StatusImage;

namespace {

// A tray that knows nothing but windows of others put into it.
class Tray {
 public:
    Tray() : process_({"trayer", "--edge", "bottom", "--widthtype", "request"}) {}

 private:
    fake::ChildProcess process_;
};

class TrayWindowTest : public statusitem::StatusItemFixture {
 protected:
    TrayWindowTest() : connection_(xcb_connect(nullptr, nullptr)) { fillMenu(true); }
    ~TrayWindowTest() override {
        item.reset();
        xcb_disconnect(connection_);
    }

    // Our window, where it has become part of a tray; else null.
    QWidget* embedded() {
        for (QWidget* const window : QApplication::topLevelWidgets()) {
            if (window->inherits("QSystemTrayIconSys") && window->isVisible() && isInside(window->winId())) {
                return window;
            }
        }
        return nullptr;
    }
    QWidget* waitForEmbedded() {
        return fake::WaitFor([this] { return embedded() != nullptr; }) ? embedded() : nullptr;
    }
    // Until the item has seen what the panel has answered it so far: a later question, on the same thread, is
    // answered after it.
    void waitForAnswers() const {
        bool answered = false;
        useragent::TrayHosts later(bus, [&](useragent::TrayRoad road) {
            EXPECT_EQ(road, useragent::TrayRoad::sessionBus);
            answered = true;
        });
        EXPECT_TRUE(fake::WaitFor([&] { return answered; }));
        QCoreApplication::processEvents();
    }
    static void click(QWidget& window, Qt::MouseButton button) {
        const QPointF at(3, 3);
        QMouseEvent press(QEvent::MouseButtonPress, at, window.mapToGlobal(at), button, button,
                          Qt::NoModifier);
        QApplication::sendEvent(&window, &press);
    }
    bool waitForNotEmbedded() {
        return fake::WaitFor([this] { return embedded() == nullptr; });
    }

 private:
    bool isInside(WId window) {
        xcb_query_tree_reply_t* const tree = xcb_query_tree_reply(
            connection_, xcb_query_tree(connection_, static_cast<xcb_window_t>(window)), nullptr);
        const bool inside = tree != nullptr && tree->parent != tree->root;
        std::free(tree);
        return inside;
    }

    xcb_connection_t* const connection_;
};

TEST_F(TrayWindowTest, ItemIsInTheTrayAndSaysItsState) {
    const Tray tray;
    createItem();
    QWidget* const window = waitForEmbedded();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(item->place(), useragent::IconPlace::window);
    item->setImage(StatusImage::menuIconRed);
    EXPECT_EQ(window->accessibleName(), QStringLiteral("Tessarin: full disk access is missing"));
    EXPECT_EQ(window->toolTip(), QStringLiteral("Tessarin: full disk access is missing"));
    item->setImage(StatusImage::menuIcon);
    EXPECT_EQ(window->accessibleName(), QStringLiteral("Tessarin User Agent"));
    item->setVisible(false);
    EXPECT_TRUE(waitForNotEmbedded());
    EXPECT_EQ(item->place(), useragent::IconPlace::none);
    item->setVisible(true);
    EXPECT_NE(waitForEmbedded(), nullptr);
}

TEST_F(TrayWindowTest, ItemAppearsInATrayThatComesLateAndInTheNextOne) {
    createItem();
    item->setImage(StatusImage::menuIconRed);
    for (int round = 0; round < 2; ++round) {
        const Tray tray;
        const QWidget* const window = waitForEmbedded();
        ASSERT_NE(window, nullptr) << round;
        EXPECT_EQ(window->toolTip(), QStringLiteral("Tessarin: full disk access is missing"));
        EXPECT_EQ(window->accessibleName(), QStringLiteral("Tessarin: full disk access is missing"));
    }
    EXPECT_TRUE(waitForNotEmbedded());
}

TEST_F(TrayWindowTest, ItemMovesToAPanelOnTheBusAndBack) {
    const Tray tray;
    createItem();
    ASSERT_NE(waitForEmbedded(), nullptr);
    for (int round = 0; round < 2; ++round) {
        {
            PanelStandIn panel(address());
            EXPECT_NE(panel.waitForItem(), "");
            EXPECT_TRUE(waitForNotEmbedded());
            EXPECT_EQ(item->place(), useragent::IconPlace::statusArea);
        }
        EXPECT_NE(waitForEmbedded(), nullptr);
    }
}

TEST_F(TrayWindowTest, WatcherWithoutAHostLeavesTheItemInTheTray) {
    const Tray tray;
    PanelStandIn panel(address(), {.hasHost = false});
    createItem();
    EXPECT_NE(waitForEmbedded(), nullptr);
    EXPECT_THAT(panel.items(), IsEmpty());
    panel.setHost(true);
    EXPECT_NE(panel.waitForItem(), "");
    EXPECT_TRUE(waitForNotEmbedded());
}

TEST_F(TrayWindowTest, BothButtonsShowTheMenuUpToDate) {
    const Tray tray;
    createItem();
    QWidget* const window = waitForEmbedded();
    ASSERT_NE(window, nullptr);
    for (const Qt::MouseButton button : {Qt::LeftButton, Qt::RightButton}) {
        calls.clear();
        click(*window, button);
        EXPECT_TRUE(menuIsOpen());
        EXPECT_THAT(calls, ElementsAre("needsUpdate"));
        menu->drawnMenu().hide();
    }
}

TEST_F(TrayWindowTest, RefreshThatHidesTheItemTakesItAwayOnceTheMenuHasClosed) {
    const Tray tray;
    createItem();
    onNeedsUpdate = [this] { item->setVisible(false); };
    for (const Qt::MouseButton button : {Qt::LeftButton, Qt::RightButton}) {
        QWidget* const window = waitForEmbedded();
        ASSERT_NE(window, nullptr);
        click(*window, button);
        EXPECT_TRUE(menuIsOpen());
        QCoreApplication::processEvents();
        EXPECT_TRUE(embedded() == window || !menuIsOpen());
        menu->drawnMenu().hide();
        EXPECT_TRUE(waitForNotEmbedded());
        item->setVisible(true);
    }
}

TEST_F(TrayWindowTest, ItemMovesToThePanelThatComesOnceTheMenuHasClosed) {
    const Tray tray;
    createItem();
    QWidget* const window = waitForEmbedded();
    ASSERT_NE(window, nullptr);
    bool wasThere = false;  // when the menu closed
    QObject context;
    QObject::connect(&menu->drawnMenu(), &QMenu::aboutToHide, &context,
                     [&] { wasThere = embedded() == window; });
    click(*window, Qt::RightButton);
    PanelStandIn panel(address());
    EXPECT_TRUE(fake::WaitFor([&] { return panel.questions() > 0; }));
    waitForAnswers();
    menu->drawnMenu().hide();
    EXPECT_TRUE(wasThere);
    EXPECT_NE(panel.waitForItem(), "");
    EXPECT_TRUE(waitForNotEmbedded());
}

TEST_F(TrayWindowTest, ItemMovesToTheTrayWhenThePanelGoesWithItsMenuOpen) {
    const Tray tray;
    auto panel = std::make_unique<PanelStandIn>(address());
    const std::string name = createItemIn(*panel);
    panel->aboutToShow(name);
    panel.reset();
    EXPECT_NE(waitForEmbedded(), nullptr);
}

// Each in a process of its own: the bus that a process had at its start cannot be had again.
using TrayWindowDeathTest = TrayWindowTest;

TEST_F(TrayWindowDeathTest, ItemIsInTheTrayWithoutASessionBus) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const fake::Environment withoutBus(statusitem::kWithoutBus, "1");
    EXPECT_EXIT(
        {
            const Tray tray;
            createItem();
            std::_Exit(waitForEmbedded() != nullptr ? 42 : 1);
        },
        testing::ExitedWithCode(42), "");
}

TEST_F(TrayWindowDeathTest, ItemMovesToTheTrayWhenTheSessionBusIsLost) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            const Tray tray;
            createItem();
            const bool waited = waitForEmbedded() != nullptr;
            auto panel = std::make_unique<PanelStandIn>(address());
            const bool moved = !panel->waitForItem().empty() && waitForNotEmbedded();
            statusitem::SessionBus().kill();
            std::_Exit(waited && moved && waitForEmbedded() != nullptr ? 42 : 1);
        },
        testing::ExitedWithCode(42), "");
}

}  // namespace
