#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>

#include "AppDelegateFixture.h"
#include "support/LogCapture.h"

// The launch, the refreshes and the icon.
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using useragent::StatusImage;

class AppDelegateTest : public AppDelegateFixture {
 protected:
    // The same, with the icon switched off.
    void launchHidden() {
        service.visibility = {{"agentIconDisable", true}};
        launch();
        EXPECT_FALSE(interface->visible);
    }
};

TEST_F(AppDelegateTest, LaunchingShowsTheItemAndRefreshesItOnceTheLaunchHasReturned) {
    delegate->applicationDidFinishLaunching();
    EXPECT_EQ(service.transport()->connectionsCreated(), 1);
    EXPECT_THAT(interface->images, ElementsAre(StatusImage::menuIcon));
    EXPECT_EQ(interface->fullDiskAccessTitle(), "Full disk access");
    service.fullDiskAccess = false;
    dispatch->runUntilIdle();
    EXPECT_THAT(interface->images, ElementsAre(StatusImage::menuIcon, StatusImage::menuIconRed));
    EXPECT_EQ(interface->fullDiskAccessTitle(), "Full disk access: Off \U0001F6AB");
}

TEST_F(AppDelegateTest, AsksRootsServiceAloneWhenTheSettingsSaySo) {
    service.transport()->service = cmn::XPCPeer{.userID = 4711};
    settings = [] {
        cmn::proto::TSettings required;
        required.RequireRootServices = true;
        return required;
    };
    launch();
    delegate->updateMenu();
    EXPECT_THAT(service.messages(), ElementsAre("version")) << "of the new connection's check";
}

TEST_F(AppDelegateTest, LaunchesWithoutSettings) {
    fake::LogCapture log;
    settings = []() -> cmn::proto::TSettings { throw std::runtime_error("broken"); };
    service.transport()->service = cmn::XPCPeer{.userID = 4711};
    launch();
    EXPECT_EQ(log.count("The settings cannot be read: broken"), 1U);
    EXPECT_THAT(service.messages(), Contains("checkFullDiskAccess"));
}

TEST_F(AppDelegateTest, EachStateIsDescribedInWordsOfItsOwn) {
    const std::set<std::string> words{useragent::DescribeImage(StatusImage::menuIcon),
                                      useragent::DescribeImage(StatusImage::menuIconRed),
                                      useragent::DescribeImage(StatusImage::menuIconRedUnanswered)};
    EXPECT_EQ(words.size(), 3U);
    EXPECT_STREQ(useragent::DescribeService(StatusImage::menuIcon),
                 useragent::DescribeService(StatusImage::menuIconRed));
    EXPECT_STRNE(useragent::DescribeService(StatusImage::menuIcon),
                 useragent::DescribeService(StatusImage::menuIconRedUnanswered));
    EXPECT_FALSE(useragent::IsRed(StatusImage::menuIcon));
}

TEST_F(AppDelegateTest, RefreshesEveryThreeHundredSecondsAndWhenTheMenuOpens) {
    launch();
    EXPECT_EQ(interface->timerInterval, 300s);
    service.fullDiskAccess = false;
    interface->timerTick();
    EXPECT_EQ(interface->images.back(), StatusImage::menuIconRed);
    service.fullDiskAccess = true;
    interface->openMenu();
    EXPECT_EQ(interface->images.back(), StatusImage::menuIcon);
    EXPECT_EQ(interface->fullDiskAccessTitle(), "Full disk access: On");
}

TEST_F(AppDelegateTest, TheIconIsHiddenWhenTheSettingsSaySo) {
    service.visibility = {{"agentIconDisable", true}};
    launch();
    EXPECT_FALSE(interface->visible);
    service.visibility = {{"agentIconDisable", false}};
    interface->timerTick();
    EXPECT_TRUE(interface->visible);
}

TEST_F(AppDelegateTest, AHiddenIconIsShownWhenTheSettingsSayNothing) {
    launchHidden();
    service.visibility = {};
    interface->timerTick();
    EXPECT_TRUE(interface->visible);
}

TEST_F(AppDelegateTest, AHiddenIconComesBackRedAtTheFirstRefreshAfterThePermissionIsLost) {
    launchHidden();
    service.fullDiskAccess = false;
    const auto asked = [this] {
        const auto messages = service.messages();
        return std::count(messages.begin(), messages.end(), "getUIVisibilityStatuses");
    };
    const auto before = asked();
    interface->timerTick();
    EXPECT_TRUE(interface->visible);
    EXPECT_EQ(interface->images.back(), StatusImage::menuIconRed);
    EXPECT_EQ(asked(), before) << "what the settings say does not matter then";
}

TEST_F(AppDelegateTest, ARefreshSetsTheImageThenTheMenuThenTheVisibility) {
    launch();
    for (const bool granted : {false, true}) {
        service.fullDiskAccess = granted;
        for (const auto& refresh : {interface->timerTick, interface->openMenu}) {
            interface->order.clear();
            refresh();
            EXPECT_THAT(interface->order, ElementsAre("image", "menu", "visibility")) << granted;
        }
    }
}

TEST_F(AppDelegateTest, AServiceThatIsSlowOrAbsentHoldsARefreshUpForATenthOfASecond) {
    launch();
    service.answersRequests = false;
    const auto start = dispatch->now();
    interface->openMenu();
    EXPECT_EQ(dispatch->now() - start, 100ms);
    EXPECT_EQ(interface->images.back(), StatusImage::menuIconRedUnanswered);
    EXPECT_EQ(interface->fullDiskAccessTitle(), "Full disk access: Off \U0001F6AB");
    service.answersRequests = true;
    interface->openMenu();
    EXPECT_EQ(interface->images.back(), StatusImage::menuIcon);
}

TEST_F(AppDelegateTest, MissingFullDiskAccessIsToldAtTheFirstRefreshThatKnowsOfIt) {
    service.answersRequests = false;
    launch();
    EXPECT_THAT(notices->shown, IsEmpty()) << "the service did not say";
    service.answersRequests = true;
    service.fullDiskAccess = false;
    interface->timerTick();
    ASSERT_EQ(notices->shown.size(), 1U);
    notices->shown[0].pressed();
    EXPECT_THAT(menu.panes->opened, ElementsAre("full disk access"));
}

TEST_F(AppDelegateTest, CallbacksAfterTheEndOfTheDelegateDoNothing) {
    launch();
    delegate.reset();
    const auto images = interface->images.size();
    interface->timerTick();
    interface->openMenu();
    EXPECT_EQ(interface->images.size(), images);
}

TEST_F(AppDelegateTest, RestorableStateIsSecure) {
    EXPECT_TRUE(useragent::AppDelegate::applicationSupportsSecureRestorableState());
}

}  // namespace
