#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "FakeInterface.h"
#include "support/LogCapture.h"

namespace {

using testing::ElementsAre;
using useragent::MenuImage;
using useragent::MenuItemContent;

std::vector<MenuItemContent> ContentsOf(const useragent::AppMenu& menu) {
    std::vector<MenuItemContent> contents;
    for (const useragent::MenuItem& item : menu.items()) {
        contents.push_back(item.content);
    }
    return contents;
}

// After a refresh.
std::vector<MenuItemContent> ContentsOf(fake::Menu& fakes, bool fullDiskAccess) {
    useragent::AppMenu menu = fakes.make();
    menu.updateMenu(fullDiskAccess);
    return ContentsOf(menu);
}

TEST(AppMenuTest, ShowsTitlesUntilAnythingIsKnown) {
    fake::Menu fakes;
    EXPECT_THAT(ContentsOf(fakes.make()),
                ElementsAre(MenuItemContent{"Full disk access"}, MenuItemContent{"Accessibility"},
                            MenuItemContent{"Finder Extension"}, MenuItemContent{"Tessarin User Agent"}));
}

TEST(AppMenuTest, ShowsWhatIsGrantedAndTheVersionOfTheAgent) {
    fake::Menu fakes;
    EXPECT_THAT(ContentsOf(fakes, true),
                ElementsAre(MenuItemContent{"Full disk access: On"},
                            MenuItemContent{"Accessibility: On", false, MenuImage::accessibility},
                            MenuItemContent{"Finder Extension: On"}, MenuItemContent{"v. 4.5.6"}));
}

TEST(AppMenuTest, MissingFullDiskAccessIsRedAndGrantedAgainItIsNot) {
    fake::Menu fakes;
    useragent::AppMenu menu = fakes.make();
    menu.updateMenu(false);
    EXPECT_EQ(ContentsOf(menu).at(0), (MenuItemContent{"Full disk access: Off \xF0\x9F\x9A\xAB", true}));
    menu.updateMenu(true);
    EXPECT_EQ(ContentsOf(menu).at(0), (MenuItemContent{"Full disk access: On", false}));
}

TEST(AppMenuTest, MissingAccessibilityAndExtensionAreNeverRed) {
    fake::Menu fakes;
    fakes.accessibility->trusted = false;
    fakes.extension->enabled = false;
    const auto contents = ContentsOf(fakes, true);
    EXPECT_EQ(contents.at(1), (MenuItemContent{"Accessibility: Off", false, MenuImage::accessibility}));
    EXPECT_EQ(contents.at(2), (MenuItemContent{"Finder Extension: Off"}));
}

TEST(AppMenuTest, TwoRefreshesInARowDoNotDoubleAnything) {
    fake::Menu fakes;
    useragent::AppMenu menu = fakes.make();
    menu.updateMenu(false);
    const auto once = ContentsOf(menu);
    menu.updateMenu(false);
    EXPECT_EQ(ContentsOf(menu), once);
}

TEST(AppMenuTest, AnAgentThatIsNoKnownProductHasNoVersionAndTheRestIsShown) {
    fake::LogCapture log;
    fake::Menu fakes;
    fakes.agentProduct = []() -> cmn::proto::TSettingsProduct {
        throw std::runtime_error("Unknown product name -- Agent");
    };
    const auto contents = ContentsOf(fakes, true);
    EXPECT_EQ(contents.at(3), (MenuItemContent{"v. ????"}));
    EXPECT_EQ(contents.at(2), (MenuItemContent{"Finder Extension: On"}));
    EXPECT_THAT(log.text(), testing::HasSubstr("Unknown product name -- Agent"));
}

TEST(AppMenuTest, EachItemOpensThePlaceWhereItsPermissionIsGrantedAndTheVersionNone) {
    fake::Menu fakes;
    const useragent::AppMenu menu = fakes.make();
    menu.items().at(0).selected();
    menu.items().at(1).selected();
    EXPECT_THAT(fakes.panes->opened, ElementsAre("full disk access", "accessibility"));
    EXPECT_EQ(fakes.extension->shown, 0);
    menu.items().at(2).selected();
    EXPECT_EQ(fakes.extension->shown, 1);
    EXPECT_EQ(menu.items().at(3).selected, nullptr);
}

}  // namespace
