#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QImage>
#include <QMenu>
#include <chrono>
#include <exception>
#include <stdexcept>

#include "StatusItemFixture.h"
#include "statusitem/StatusIcons.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

using statusitem::Entry;
using statusitem::PanelStandIn;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The menu as the desktop's panel gets it over the bus.
class TrayMenuTest : public statusitem::StatusItemFixture {
 protected:
    std::vector<std::string> labels() {
        std::vector<std::string> found;
        for (const Entry& entry : panel.layout(name)) {
            found.push_back(entry.isSeparator ? "-" : entry.label);
        }
        return found;
    }

    bool isThere() {
        try {
            return panel.property(name, "Status").isValid();
        } catch (const std::exception&) {
            return false;
        }
    }

    PanelStandIn panel{address()};
    std::string name = createItemIn(panel);
};

TEST_F(TrayMenuTest, PanelReadsTheItemsInTheirOrder) {
    EXPECT_THAT(labels(), ElementsAre("Full disk access: On", "Accessibility: On", "Finder Extension: Off",
                                      "v. 1.2.3", "-", "Protection service: On", "Quit Tessarin User Agent"));
    const std::vector<Entry> entries = panel.layout(name);
    EXPECT_FALSE(entries.at(3).enabled);
    EXPECT_TRUE(entries.at(0).enabled);
}

TEST_F(TrayMenuTest, IsBroughtUpToDateBeforeThePanelIsAnswered) {
    onNeedsUpdate = [this] { fillMenu(false); };
    panel.aboutToShow(name);
    EXPECT_THAT(calls, ElementsAre("needsUpdate"));
    EXPECT_THAT(panel.signalsOf(name), Contains("ItemsPropertiesUpdated"));
    EXPECT_EQ(labels().front(), "Full disk access: Off");
    panel.aboutToShow(name);
    EXPECT_EQ(calls.size(), 2U);
}

TEST_F(TrayMenuTest, PanelThatOnlyReadsGetsTheLastTexts) {
    fillMenu(false);
    EXPECT_EQ(labels().front(), "Full disk access: Off");
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(TrayMenuTest, PanelThatDoesNotAskBeforeIsServedWhenItHasOpenedTheMenu) {
    onNeedsUpdate = [this] { fillMenu(false); };
    panel.menuEvent(name, 0, "opened");
    EXPECT_THAT(calls, ElementsAre("needsUpdate"));
    EXPECT_EQ(labels().front(), "Full disk access: Off");
    panel.menuEvent(name, 0, "closed");
    panel.aboutToShow(name);
    panel.menuEvent(name, 0, "opened");
    EXPECT_EQ(calls.size(), 2U) << "asked before, it need not be updated again";
}

TEST_F(TrayMenuTest, PanelIsToldWhetherTheMenuChangedWhenItAsked) {
    onNeedsUpdate = [this] { fillMenu(false); };
    EXPECT_TRUE(panel.aboutToShow(name));
    EXPECT_FALSE(panel.aboutToShow(name));
}

TEST_F(TrayMenuTest, TitleIsShownAsItIs) {
    setVersion("v. 1_rc & more");
    // A single one would be taken for the mark of a keyboard shortcut.
    EXPECT_EQ(labels().at(3), "v. 1__rc & more");
    setVersion("v. 1\n2");
    EXPECT_EQ(labels().at(3), "v. 1 2");
}

TEST_F(TrayMenuTest, PanelsMayAskInGroupsAndForOneProperty) {
    const std::vector<Entry> entries = panel.layout(name);
    std::vector<std::string> asked;
    for (const Entry& entry : panel.group(name, {entries.at(1).number, entries.at(3).number})) {
        asked.push_back(entry.label);
    }
    EXPECT_THAT(asked, ElementsAre("Accessibility: On", "v. 1.2.3"));
    EXPECT_EQ(panel.menuProperty(name, entries.at(2).number, "label"), "Finder Extension: Off");
    panel.clickInGroup(name, {entries.at(0).number, entries.at(2).number});
    EXPECT_TRUE(fake::WaitFor([this] { return calls.size() == 2; }));
    EXPECT_THAT(calls, ElementsAre("option1", "option3"));
}

TEST_F(TrayMenuTest, StrangeRequestsAreAnswered) {
    panel.menuEvent(name, 4711, "clicked");
    panel.menuEvent(name, -1, "clicked");
    panel.menuEvent(name, 0, "clicked");
    panel.menuEvent(name, 1, "unheard-of");
    EXPECT_EQ(labels().size(), 7U);
    EXPECT_THAT(calls, IsEmpty());
}

// Whether the picture of an entry shows anything.
bool IsDrawn(const Entry& entry) {
    const QImage picture = QImage::fromData(entry.iconData, "PNG");
    return picture.pixelColor(picture.width() / 2, picture.height() / 2).alpha() > 0;
}

TEST_F(TrayMenuTest, PicturesAreOfTheSizeThatPanelsOfTwiceTheDensityShow) {
    fillMenu(false);
    for (const Entry& entry : panel.layout(name)) {
        if (!entry.isSeparator) {
            EXPECT_EQ(QImage::fromData(entry.iconData, "PNG").size(), QSize(32, 32)) << entry.label;
        }
    }
    // Drawn at that size, not made larger.
    const QIcon icon = useragent::MenuItemIcon({"", false, useragent::MenuImage::accessibility});
    EXPECT_EQ(
        QImage::fromData(panel.layout(name).at(1).iconData, "PNG").convertToFormat(QImage::Format_ARGB32),
        icon.pixmap(QSize(32, 32), 1.0).toImage().convertToFormat(QImage::Format_ARGB32));
}

TEST_F(TrayMenuTest, TitlesWithoutAPictureHaveAnEmptyOneSoThatAllAreAligned) {
    std::vector<bool> drawn;
    for (const Entry& entry : panel.layout(name)) {
        if (!entry.isSeparator) {
            EXPECT_FALSE(entry.iconData.isEmpty()) << entry.label;
            drawn.push_back(IsDrawn(entry));
        }
    }
    EXPECT_THAT(drawn, ElementsAre(false, true, false, false, false, false));
}

TEST_F(TrayMenuTest, RedItemHasARedMark) {
    EXPECT_FALSE(IsDrawn(panel.layout(name).at(0)));
    fillMenu(false);
    const QImage mark = QImage::fromData(panel.layout(name).at(0).iconData, "PNG");
    ASSERT_FALSE(mark.isNull());
    const QColor colour = mark.pixelColor(mark.width() / 5, mark.height() / 2);
    EXPECT_GT(colour.red(), colour.green() + 100);
    fillMenu(true);
    EXPECT_FALSE(IsDrawn(panel.layout(name).at(0)));
}

TEST_F(TrayMenuTest, UpdateThatChangesNothingIsNotToldToThePanel) {
    onNeedsUpdate = [this] { fillMenu(true); };
    panel.forgetSignals();
    panel.aboutToShow(name);
    EXPECT_THAT(calls, ElementsAre("needsUpdate"));
    EXPECT_THAT(panel.signalsOf(name), IsEmpty());
}

TEST_F(TrayMenuTest, ChangedItemIsToldWithoutANewLayout) {
    panel.forgetSignals();
    setVersion("v. 2");
    EXPECT_THAT(panel.signalsOf(name), ElementsAre("ItemsPropertiesUpdated"));
}

TEST_F(TrayMenuTest, SaysInWordsWhenTheServiceDoesNotAnswerAndWhenItDoesAgain) {
    const auto service = [this] { return labels().at(5); };
    item->setImage(useragent::StatusImage::menuIconRedUnanswered);
    EXPECT_EQ(service(), "Protection service: does not answer");
    item->setImage(useragent::StatusImage::menuIconRed);
    EXPECT_EQ(service(), "Protection service: On");
    item->setImage(useragent::StatusImage::menuIcon);
    EXPECT_EQ(service(), "Protection service: On");
    EXPECT_FALSE(panel.layout(name).at(5).enabled);
    panel.forgetSignals();
    item->setImage(useragent::StatusImage::menuIcon);
    EXPECT_EQ(service(), "Protection service: On");
    EXPECT_THAT(panel.signalsOf(name), IsEmpty()) << "an open menu would jump";
}

TEST_F(TrayMenuTest, ClickCallsTheSelection) {
    for (const char* const label :
         {"Full disk access: On", "Accessibility: On", "Finder Extension: Off", "Quit Tessarin User Agent"}) {
        panel.click(name, label);
    }
    EXPECT_TRUE(fake::WaitFor([this] { return calls.size() == 4; }));
    EXPECT_THAT(calls, ElementsAre("option1", "option2", "option3", "quit"));
}

TEST_F(TrayMenuTest, UpdateThatThrowsIsLoggedAndThePanelAnswered) {
    fake::LogCapture log;
    onNeedsUpdate = [] { throw std::runtime_error("no service"); };
    panel.aboutToShow(name);
    EXPECT_TRUE(log.contains("The status menu -- failed: no service"));
    EXPECT_EQ(labels().size(), 7U);
}

TEST_F(TrayMenuTest, ActivationShowsOurOwnMenuUpToDate) {
    onNeedsUpdate = [this] { fillMenu(false); };
    panel.activate(name);
    EXPECT_TRUE(fake::WaitFor([this] { return menu->drawnMenu().isVisible(); }));
    EXPECT_THAT(calls, ElementsAre("needsUpdate"));
    menu->drawnMenu().hide();
}

// How a panel may say that the user is about to see the menu.
struct Opening {
    const char* name;
    std::function<void(PanelStandIn&, const std::string& item)> open;
};
const Opening kOpenings[] = {
    {"AboutToShow", [](PanelStandIn& panel, const std::string& item) { panel.aboutToShow(item); }},
    {"AboutToShowGroup", [](PanelStandIn& panel, const std::string& item) { panel.aboutToShowGroup(item); }},
    {"opened", [](PanelStandIn& panel, const std::string& item) { panel.menuEvent(item, 0, "opened"); }},
};

TEST_F(TrayMenuTest, RefreshThatHidesTheItemTakesItAwayOnceThePanelHasClosedTheMenu) {
    onNeedsUpdate = [this] {
        fillMenu(false);
        item->setVisible(false);
    };
    for (const Opening& opening : kOpenings) {
        SCOPED_TRACE(opening.name);
        calls.clear();
        opening.open(panel, name);
        EXPECT_THAT(calls, ElementsAre("needsUpdate"));
        EXPECT_EQ(labels().front(), "Full disk access: Off") << "the menu is there, and up to date";
        EXPECT_EQ(panel.items(), std::vector{name});
        panel.menuEvent(name, 0, "closed");
        EXPECT_TRUE(panel.waitForNoItem());
        fillMenu(true);
        item->setVisible(true);
        name = panel.waitForItem();
    }
}

TEST_F(TrayMenuTest, RefreshThatHidesTheItemTakesItAwayOnceOurOwnMenuHasClosed) {
    onNeedsUpdate = [this] { item->setVisible(false); };
    for (const auto click : {&PanelStandIn::activate, &PanelStandIn::contextMenu}) {
        calls.clear();
        (panel.*click)(name);
        EXPECT_TRUE(fake::WaitFor([this] { return !calls.empty(); }));
        EXPECT_TRUE(isThere() || !menuIsOpen());
        menu->drawnMenu().hide();
        EXPECT_TRUE(panel.waitForNoItem());
        item->setVisible(true);
        name = panel.waitForItem();
    }
}

TEST_F(TrayMenuTest, ItemHiddenWhileItsMenuIsOpenAndShownAgainStays) {
    panel.aboutToShow(name);
    item->setVisible(false);
    EXPECT_EQ(labels().size(), 7U);
    item->setVisible(true);
    panel.menuEvent(name, 0, "closed");
    EXPECT_EQ(labels().size(), 7U);
    EXPECT_EQ(panel.items(), std::vector{name});
}

TEST_F(TrayMenuTest, ItemIsTakenAwayAlsoWhenThePanelNeverSaysThatItClosedTheMenu) {
    item.reset();
    ASSERT_TRUE(panel.waitForNoItem());
    createItem(std::chrono::milliseconds(1));
    name = panel.waitForItem();
    onNeedsUpdate = [this] { item->setVisible(false); };
    panel.aboutToShow(name);
    EXPECT_TRUE(panel.waitForNoItem());
}

TEST_F(TrayMenuTest, MenuIsTheSameInThePanelThatComesAfterTheFirst) {
    fillMenu(false);
    item->setVisible(false);
    ASSERT_TRUE(panel.waitForNoItem());
    item->setVisible(true);
    name = panel.waitForItem();
    EXPECT_THAT(labels(), ElementsAre("Full disk access: Off", "Accessibility: On", "Finder Extension: Off",
                                      "v. 1.2.3", "-", "Protection service: On", "Quit Tessarin User Agent"));
    panel.forgetSignals();
    setVersion("v. 2");
    EXPECT_THAT(panel.signalsOf(name), ElementsAre("ItemsPropertiesUpdated"));
    panel.click(name, "Finder Extension: Off");
    EXPECT_TRUE(fake::WaitFor([this] { return calls.size() == 1; }));
}

}  // namespace
