#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "FakeInterface.h"
#include "support/LogCapture.h"

namespace {

using testing::ElementsAre;
using useragent::MenuImage;
using useragent::MenuItemContent;

TEST(AppMenuTest, ShowsWhatIsGrantedAndTheVersionOfTheAgent) {
    fake::Menu fakes;
    fakes.make().updateMenu(true);
    EXPECT_EQ(fakes.fulldisk->shown(), (MenuItemContent{"Full disk access: On"}));
    EXPECT_EQ(fakes.accessibilityItem->shown(),
              (MenuItemContent{"Accessibility: On", false, MenuImage::accessibility}));
    EXPECT_EQ(fakes.finder->shown(), (MenuItemContent{"Finder Extension: On"}));
    EXPECT_EQ(fakes.version->shown(), (MenuItemContent{"v. 4.5.6"}));
}

TEST(AppMenuTest, MissingFullDiskAccessIsRedAndGrantedAgainItIsNot) {
    fake::Menu fakes;
    useragent::AppMenu menu = fakes.make();
    menu.updateMenu(false);
    EXPECT_EQ(fakes.fulldisk->shown(), (MenuItemContent{"Full disk access: Off \xF0\x9F\x9A\xAB", true}));
    menu.updateMenu(true);
    EXPECT_EQ(fakes.fulldisk->shown(), (MenuItemContent{"Full disk access: On", false}));
}

TEST(AppMenuTest, MissingAccessibilityAndExtensionAreNeverRed) {
    fake::Menu fakes;
    fakes.accessibility->trusted = false;
    fakes.extension->enabled = false;
    fakes.make().updateMenu(true);
    EXPECT_EQ(fakes.accessibilityItem->shown(),
              (MenuItemContent{"Accessibility: Off", false, MenuImage::accessibility}));
    EXPECT_EQ(fakes.finder->shown(), (MenuItemContent{"Finder Extension: Off"}));
}

TEST(AppMenuTest, TwoRefreshesInARowDoNotDoubleAnything) {
    fake::Menu fakes;
    useragent::AppMenu menu = fakes.make();
    menu.updateMenu(false);
    menu.updateMenu(false);
    EXPECT_EQ(fakes.fulldisk->contents.at(0), fakes.fulldisk->contents.at(1));
    EXPECT_EQ(fakes.version->contents.at(0), fakes.version->contents.at(1));
}

TEST(AppMenuTest, AnAgentThatIsNoKnownProductHasNoVersionAndTheRestIsShown) {
    fake::LogCapture log;
    fake::Menu fakes;
    fakes.agentProduct = []() -> cmn::proto::TSettingsProduct {
        throw std::runtime_error("Unknown product name -- Agent");
    };
    fakes.make().updateMenu(true);
    EXPECT_EQ(fakes.version->shown(), (MenuItemContent{"v. ????"}));
    EXPECT_EQ(fakes.finder->shown(), (MenuItemContent{"Finder Extension: On"}));
    EXPECT_THAT(log.text(), testing::HasSubstr("Unknown product name -- Agent"));
}

TEST(AppMenuTest, EachItemOpensThePlaceWhereItsPermissionIsGranted) {
    fake::Menu fakes;
    useragent::AppMenu menu = fakes.make();
    menu.option1Selected();
    menu.option2Selected();
    EXPECT_THAT(fakes.panes->opened, ElementsAre("full disk access", "accessibility"));
    EXPECT_EQ(fakes.extension->shown, 0);
    menu.option3Selected();
    EXPECT_EQ(fakes.extension->shown, 1);
}

}  // namespace
