#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QImage>
#include <QMenu>
#include <stdexcept>

#include "StatusItemFixture.h"
#include "support/LogCapture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class StatusMenuTest : public statusitem::StatusItemFixture {
 protected:
    QList<QAction*> actions() { return menu->drawnMenu().actions(); }

    std::vector<std::string> titles() {
        std::vector<std::string> found;
        for (const QAction* const action : actions()) {
            found.push_back(action->isSeparator() ? "-" : action->text().toStdString());
        }
        return found;
    }

    // Whether a pixel of the entry's title, to the right of its icon, is clearly red.
    bool isDrawnRed(int index, bool selected = false) {
        QMenu& drawn = menu->drawnMenu();
        drawn.setActiveAction(selected ? actions().at(index) : nullptr);
        drawn.ensurePolished();
        drawn.resize(drawn.sizeHint());
        const QRect entry = drawn.actionGeometry(actions().at(index)).adjusted(32, 0, 0, 0);
        const QImage image = drawn.grab(entry).toImage();
        EXPECT_GT(image.width(), 50);
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor colour = image.pixelColor(x, y);
                if (colour.red() > colour.green() + 80 && colour.red() > colour.blue() + 80) {
                    return true;
                }
            }
        }
        return false;
    }
};

TEST_F(StatusMenuTest, ShowsTheItemsInTheirOrderAndTheEndOfTheAgent) {
    fillMenu(true);
    EXPECT_THAT(titles(), ElementsAre("Full disk access: On", "Accessibility: On", "Finder Extension: Off",
                                      "v. 1.2.3", "-", "Protection service: On", "Quit Tessarin User Agent"));
    EXPECT_FALSE(actions().at(5)->isEnabled());
}

TEST_F(StatusMenuTest, NothingIsSaidOfTheServiceBeforeItWasAsked) {
    useragent::StatusMenu fresh([] {});
    EXPECT_EQ(fresh.drawnMenu().actions().at(1)->text(), "Protection service");
}

TEST_F(StatusMenuTest, EachItemCallsItsSelectionAndTheVersionNone) {
    for (QAction* const action : actions()) {
        action->trigger();
    }
    EXPECT_THAT(calls, ElementsAre("option1", "option2", "option3", "quit"));
    EXPECT_FALSE(actions().at(3)->isEnabled());
}

TEST_F(StatusMenuTest, SelectionsThatAreMissingOrThrowDoNoHarm) {
    fake::LogCapture log;
    useragent::MenuItems items = menuItems(true);
    items.at(0).selected = [] { throw std::runtime_error("no settings program"); };
    items.at(1).selected = nullptr;
    items.at(2).selected = [] { throw 1; };
    menu->setItems(items);
    for (QAction* const action : actions()) {
        action->trigger();
    }
    EXPECT_THAT(calls, ElementsAre("quit"));
    EXPECT_TRUE(log.contains("The status menu -- failed: no settings program"));
    EXPECT_EQ(log.count("The status menu -- failed"), 2U);
}

TEST_F(StatusMenuTest, ContentThatIsTheSameIsNotWrittenAgain) {
    fillMenu(false);
    std::vector<std::string> written;
    for (QAction* const action : actions()) {
        QObject::connect(action, &QAction::changed, action,
                         [&written, action] { written.push_back(action->text().toStdString()); });
    }
    fillMenu(false);
    EXPECT_THAT(written, IsEmpty());
    setVersion("v. 2");
    EXPECT_THAT(written, ElementsAre("v. 2"));
}

TEST_F(StatusMenuTest, TitleIsShownAsItIs) {
    setVersion("A & B");
    EXPECT_EQ(actions().at(3)->text(), QStringLiteral("A && B"));
}

TEST_F(StatusMenuTest, RedTitleIsDrawnRedUntilItIsSelectedOrNoLongerRed) {
    fillMenu(false);
    EXPECT_TRUE(isDrawnRed(0));
    EXPECT_FALSE(isDrawnRed(1));
    // Red on the colour of the selection could not be read.
    EXPECT_FALSE(isDrawnRed(0, true));
    fillMenu(true);
    EXPECT_FALSE(isDrawnRed(0));
}

TEST_F(StatusMenuTest, RedTitleIsReadableOnADarkMenuToo) {
    QPalette dark = menu->drawnMenu().palette();
    dark.setColor(QPalette::Window, QColor(0x20, 0x20, 0x20));
    dark.setColor(QPalette::Base, QColor(0x20, 0x20, 0x20));
    menu->drawnMenu().setPalette(dark);
    fillMenu(false);
    EXPECT_TRUE(isDrawnRed(0));
}

TEST_F(StatusMenuTest, RedItemHasAMarkAndOthersTheirImage) {
    const auto isDrawn = [this](int index) {
        const QImage image = actions().at(index)->icon().pixmap(QSize(16, 16), 1.0).toImage();
        return image.pixelColor(8, 8).alpha() > 0;
    };
    fillMenu(false);
    EXPECT_TRUE(isDrawn(0));
    EXPECT_TRUE(isDrawn(1));
    EXPECT_FALSE(isDrawn(2));
    fillMenu(true);
    EXPECT_FALSE(isDrawn(0));
    EXPECT_TRUE(isDrawn(1));
}

TEST_F(StatusMenuTest, EveryTitleHasAPictureBesideItPerhapsAnEmptyOne) {
    fillMenu(true);
    for (const QAction* const action : actions()) {
        EXPECT_EQ(action->icon().isNull(), action->isSeparator()) << action->text().toStdString();
    }
}

TEST_F(StatusMenuTest, AControlCharacterInATitleIsShownAsABlank) {
    setVersion("v. 1\n2");
    EXPECT_EQ(actions().at(3)->text(), "v. 1 2");
}

TEST_F(StatusMenuTest, IsBroughtUpToDateBeforeItIsShown) {
    createItem();
    onNeedsUpdate = [this] { fillMenu(false); };
    menu->drawnMenu().popup(QPoint(5, 5));
    EXPECT_THAT(calls, ElementsAre("needsUpdate"));
    EXPECT_EQ(titles().front(), "Full disk access: Off");
    menu->drawnMenu().hide();
    item.reset();
    menu->drawnMenu().popup(QPoint(5, 5));
    EXPECT_EQ(calls.size(), 1U) << "the item that wanted to know is gone";
}

}  // namespace
