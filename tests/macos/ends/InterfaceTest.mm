#import <AppKit/AppKit.h>
#include <gmock/gmock.h>

#include "TessarinUserAgent/FakeInterface.h"
#include "XPCCommon/ScriptedFinderExtension.h"
#import "common_mac/FoundationBridges.h"
#import "interface/AppDelegate.h"
#import "interface/AppKitInterface.h"
#import "interface/FileFiltersViewController.h"
#include "support/FakeAccessibility.h"
#include "support/FakeDispatch.h"
#include "support/LogCapture.h"

// Menu, windows and URLs, with the storyboard of the bundle. Needs a session with a display.
namespace {

class InterfaceTest : public testing::Test {
 protected:
    InterfaceTest() {
        [NSApplication sharedApplication];
        [::AppDelegate
            setEnvironment:{std::make_shared<fake::Accessibility>(), dispatch, service.transport()}];
        delegate = [[::AppDelegate alloc] init];
        delegate.fileFiltersWindows = [NSMutableArray array];
        interface = std::make_shared<useragent::AppKitInterface>(delegate);
    }
    ~InterfaceTest() override { dispatch->close(); }

    std::unique_ptr<useragent::FileFiltersViewController> content() const {
        auto controller = std::make_unique<useragent::FileFiltersViewController>(
            useragent::FileFiltersViewController::Environment{[] { return cmn::proto::TSettings(); },
                                                              [] { return useragent::WallTime(); }});
        controller->setFileName("/tmp/a file");
        return controller;
    }
    NSWindow* shownWindow() const { return delegate.fileFiltersWindows[0].window; }

    fake::LogCapture log;
    const std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedFinderExtension service{dispatch};
    ::AppDelegate* delegate;
    std::shared_ptr<useragent::AppKitInterface> interface;
};

TEST_F(InterfaceTest, TheSceneHasEveryOutlet) {
    NSStoryboard* const storyboard = [NSStoryboard storyboardWithName:@"Main" bundle:[NSBundle mainBundle]];
    id const made = [storyboard instantiateControllerWithIdentifier:@"FileFiltersViewController"];
    ASSERT_TRUE([made isKindOfClass:[::FileFiltersViewController class]]);
    ::FileFiltersViewController* const controller = made;
    [controller setContent:content()];
    ASSERT_NE(controller.view, nil);
    EXPECT_NE(controller.tableView, nil);
    for (NSTextField* label in @[
             controller.fileNameLabel, controller.fileStateLabel, controller.serverIDLabel,
             controller.totalRiskLabel, controller.totalSensetiveRiskLabel, controller.encryptionStatusLabel,
             controller.encryptionPredictLabel, controller.encryptionInfo
         ]) {
        EXPECT_TRUE([label isKindOfClass:[NSTextField class]]);
    }
    EXPECT_EQ(controller.tableView.tableColumns.count, 4U);
}

TEST_F(InterfaceTest, AWindowFloatsWithTitleAndCanBeClosedAndEnlarged) {
    int closed = 0;
    const auto window = interface->createPropertiesWindow([&closed] { ++closed; });
    ASSERT_NE(window, nullptr);
    window->show(content(), "");
    ASSERT_EQ(delegate.fileFiltersWindows.count, 1U);
    NSWindow* const shown = shownWindow();
    EXPECT_EQ(cmn::ToStdString(shown.title), "Tessarin Properties");
    EXPECT_EQ(shown.level, NSFloatingWindowLevel);
    const NSWindowStyleMask style =
        NSWindowStyleMaskTitled | NSWindowStyleMaskClosable | NSWindowStyleMaskResizable;
    EXPECT_EQ(shown.styleMask & style, style);
    EXPECT_GE(shown.frame.size.width, 400);
    EXPECT_GE(shown.frame.size.height, 300);
    [shown performClose:nil];
    EXPECT_EQ(closed, 1);
    EXPECT_EQ(delegate.fileFiltersWindows.count, 0U);
}

TEST_F(InterfaceTest, AWindowThatIsDestroyedGoesWithoutAReport) {
    int closed = 0;
    auto window = interface->createPropertiesWindow([&closed] { ++closed; });
    window->show(content(), "");
    window.reset();
    EXPECT_EQ(closed, 0);
    EXPECT_EQ(delegate.fileFiltersWindows.count, 0U);
}

TEST_F(InterfaceTest, MenuItemsHaveTheirTextsAndTheRedOnesTheirColour) {
    ::AppMenu* const menu = [[::AppMenu alloc] init];
    NSArray<NSMenuItem*>* const items = @[
        [[NSMenuItem alloc] init], [[NSMenuItem alloc] init], [[NSMenuItem alloc] init],
        [[NSMenuItem alloc] init]
    ];
    menu.fulldiskItem = items[0];
    menu.accessibilityItem = items[1];
    menu.finderItem = items[2];
    menu.versionItem = items[3];
    int selected = 0;
    [menu showItems:{{{"Full disk", true}, [&selected] { ++selected; }},
                     {{"Accessibility", false, useragent::MenuImage::accessibility}, {}},
                     {{"Finder"}, {}},
                     {{"Version"}, {}}}];
    EXPECT_EQ(cmn::ToStdString(items[0].title), "Full disk");
    NSColor* const colour = [items[0].attributedTitle attribute:NSForegroundColorAttributeName
                                                        atIndex:0
                                                 effectiveRange:nullptr];
    EXPECT_TRUE([colour isEqual:[NSColor redColor]]);
    EXPECT_EQ(items[1].attributedTitle, nil);
    EXPECT_NE(items[1].image, nil);
    EXPECT_EQ(cmn::ToStdString(items[3].title), "Version");
    [menu option1Selected:nil];
    [menu option2Selected:nil];
    EXPECT_EQ(selected, 1);
    [menu showItems:{{{"Full disk"}, {}}, {{"Accessibility"}, {}}, {{"Finder"}, {}}, {{"Version"}, {}}}];
    EXPECT_EQ(items[0].attributedTitle, nil) << "no longer red";
}

TEST_F(InterfaceTest, OfTheURLsOnlyTheProductsOwnOpensAWindow) {
    [delegate applicationDidFinishLaunching:[[NSNotification alloc] init]];
    dispatch->runUntilIdle();
    NSMutableArray<NSURL*>* const urls = [NSMutableArray arrayWithCapacity:4];
    for (const char* text :
         {"https://example.com/", "file:///etc/hosts", "tessarin-scheme://other?path=/etc/hosts",
          "tessarin-scheme://showProperties?path=/etc/hosts"}) {
        [urls addObject:[NSURL URLWithStdString:text]];
    }
    [delegate application:[NSApplication sharedApplication] openURLs:urls];
    dispatch->runUntilIdle();
    EXPECT_EQ(delegate.fileFiltersWindows.count, 1U);
}

}  // namespace
