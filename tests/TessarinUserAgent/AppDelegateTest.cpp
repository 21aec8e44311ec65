#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeInterface.h"
#include "XPCCommon/ScriptedFinderExtension.h"
#include "support/FakeDispatch.h"
#include "support/SystemLogCapture.h"
#include "useragent/AppDelegate.h"

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using useragent::StatusImage;

class AppDelegateTest : public testing::Test {
 protected:
    void SetUp() override { delegate = makeDelegate(); }
    void TearDown() override { dispatch->close(); }

    std::shared_ptr<useragent::AppDelegate> makeDelegate() {
        return std::make_shared<useragent::AppDelegate>(useragent::AppDelegate::Environment{
            interface,
            std::make_shared<useragent::AppMenu>(menu.make()),
            dispatch,
            service.transport(),
            {[] { return cmn::proto::TSettings(); }, [] { return useragent::WallTime(); }}});
    }
    // Launched, connected, refreshed once.
    void launch() {
        delegate->applicationDidFinishLaunching();
        dispatch->runUntilIdle();
    }
    // What the labels of the window number `index` show.
    std::map<std::string, std::string> texts(std::size_t index);

    fake::SystemLogCapture systemLog;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedFinderExtension service{dispatch};
    std::shared_ptr<fake::Interface> interface = std::make_shared<fake::Interface>();
    fake::Menu menu;
    std::shared_ptr<useragent::AppDelegate> delegate;
};

// The two labels that the delegate's answers decide.
class Labels : public useragent::FileFiltersView {
 public:
    void setTotalRiskLabel(const std::string&) override {}
    void setTotalSensetiveRiskLabel(const std::string&) override {}
    void setFileNameLabel(const std::string& text) override { texts["fileName"] = text; }
    void setServerIDLabel(const std::string&) override {}
    void setFileStateLabel(const std::string& text) override { texts["state"] = text; }
    void setEncryptionStatusLabel(const std::string& text) override { texts["status"] = text; }
    void setEncryptionPredictLabel(const std::string&) override {}
    std::string encryptionInfo() const override { return {}; }
    void setEncryptionInfo(const std::string&) override {}

    std::map<std::string, std::string> texts;
};

std::map<std::string, std::string> AppDelegateTest::texts(std::size_t index) {
    Labels labels;
    interface->windows.at(index)->controller->viewDidLoad(labels);
    return labels.texts;
}

TEST_F(AppDelegateTest, LaunchingShowsTheItemAndRefreshesItOnceTheLaunchHasReturned) {
    delegate->applicationDidFinishLaunching();
    EXPECT_EQ(service.transport()->connectionsCreated(), 1);
    EXPECT_THAT(interface->images, ElementsAre(StatusImage::menuIcon));
    EXPECT_THAT(menu.fulldisk->contents, IsEmpty());
    service.fullDiskAccess = false;
    dispatch->runUntilIdle();
    EXPECT_THAT(interface->images, ElementsAre(StatusImage::menuIcon, StatusImage::menuIconRed));
    EXPECT_EQ(menu.fulldisk->contents.size(), 1U);
}

TEST_F(AppDelegateTest, URLsFromBeforeTheLaunchAreOpenedInTheirOrderAfterTheFirstRefresh) {
    delegate->openURLs({"tessarin-scheme://showProperties?path=/first"});
    delegate->openURLs({"tessarin-scheme://showProperties?path=/second", "tessarin-scheme://other?path=/x"});
    EXPECT_THAT(interface->windows, IsEmpty());
    delegate->applicationDidFinishLaunching();
    EXPECT_THAT(interface->windows, IsEmpty());
    dispatch->runUntilIdle();
    ASSERT_EQ(interface->windows.size(), 2U);
    EXPECT_EQ(texts(0)["fileName"], "/first");
    EXPECT_EQ(texts(1)["fileName"], "/second");
    dispatch->runUntilIdle();
    EXPECT_EQ(interface->windows.size(), 2U);
}

TEST_F(AppDelegateTest, BothImagesAreDescribedInDifferentWords) {
    EXPECT_STRNE(useragent::DescribeImage(StatusImage::menuIcon),
                 useragent::DescribeImage(StatusImage::menuIconRed));
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
    EXPECT_EQ(menu.fulldisk->shown().title, "Full disk access: On");
}

TEST_F(AppDelegateTest, TheIconIsHiddenWhenTheSettingsSaySo) {
    service.visibility = {{"agentIconDisable", true}};
    launch();
    EXPECT_FALSE(interface->visible);
    service.visibility = {{"agentIconDisable", false}};
    interface->timerTick();
    EXPECT_TRUE(interface->visible);
}

TEST_F(AppDelegateTest, TheIconIsShownWhenTheSettingsSayNothing) {
    service.visibility = {};
    launch();
    EXPECT_TRUE(interface->visible);
}

TEST_F(AppDelegateTest, MissingFullDiskAccessIsShownEvenWithTheIconSwitchedOff) {
    service.visibility = {{"agentIconDisable", true}};
    service.fullDiskAccess = false;
    launch();
    EXPECT_TRUE(interface->visible);
    EXPECT_EQ(interface->images.back(), StatusImage::menuIconRed);
    EXPECT_THAT(service.messages(), Not(Contains("getUIVisibilityStatuses")));
}

TEST_F(AppDelegateTest, AHiddenIconComesBackRedAtTheFirstRefreshAfterThePermissionIsLost) {
    service.visibility = {{"agentIconDisable", true}};
    launch();
    service.fullDiskAccess = false;
    EXPECT_FALSE(interface->visible);
    interface->timerTick();
    EXPECT_TRUE(interface->visible);
    EXPECT_EQ(interface->images.back(), StatusImage::menuIconRed);
}

TEST_F(AppDelegateTest, AServiceThatIsSlowOrAbsentHoldsARefreshUpForATenthOfASecond) {
    launch();
    service.answersRequests = false;
    const auto start = dispatch->now();
    interface->openMenu();
    EXPECT_EQ(dispatch->now() - start, 100ms);
    EXPECT_EQ(interface->images.back(), StatusImage::menuIconRed);
}

TEST_F(AppDelegateTest, ARequestOpensOneWindowForTheFile) {
    service.records = {{{"Name", "Cards"}}};
    launch();
    delegate->openURLs({"tessarin-scheme://showProperties?path=/home/u/a%20b.txt"});
    ASSERT_EQ(interface->windows.size(), 1U);
    EXPECT_TRUE(interface->windows[0]->shown);
    EXPECT_EQ(interface->windows[0]->controller->numberOfRows(), 1U);
    EXPECT_EQ(texts(0)["fileName"], "/home/u/a b.txt");
    EXPECT_EQ(texts(0)["status"], "Status: Encrypted");
    EXPECT_THAT(service.messages(), Contains("getScanResult /home/u/a b.txt"));
    EXPECT_THAT(service.messages(), Contains("checkEncryptionStatus /home/u/a b.txt"));
}

TEST_F(AppDelegateTest, ARequestWithoutAPathOpensAWindowThatIsPending) {
    launch();
    delegate->openURLs({"tessarin-scheme://showProperties"});
    ASSERT_EQ(interface->windows.size(), 1U);
    EXPECT_EQ(texts(0)["fileName"], "");
    EXPECT_EQ(texts(0)["state"], "Pending scan");
}

TEST_F(AppDelegateTest, OtherUrlsDoNothing) {
    launch();
    const auto before = service.messages();
    delegate->openURLs({"tessarin-scheme://other?path=/x", "https://showProperties?path=/x", "", "%"});
    EXPECT_THAT(interface->windows, IsEmpty());
    EXPECT_EQ(service.messages(), before);
}

TEST_F(AppDelegateTest, TwoUrlsForTheSameFileOpenTwoWindows) {
    launch();
    const std::string url = "tessarin-scheme://showProperties?path=/f";
    delegate->openURLs({url, "tessarin-scheme://other", url});
    EXPECT_EQ(interface->windows.size(), 2U);
    EXPECT_EQ(delegate->openWindows(), 2U);
}

TEST_F(AppDelegateTest, ClosingOneOfTwoWindowsForTheSameFileForgetsExactlyThatOne) {
    launch();
    const std::string url = "tessarin-scheme://showProperties?path=/f";
    delegate->openURLs({url, url});
    interface->windows[1]->willClose();
    EXPECT_TRUE(interface->windows[1]->destroyed);
    EXPECT_FALSE(interface->windows[0]->destroyed);
    EXPECT_EQ(delegate->openWindows(), 1U);
}

TEST_F(AppDelegateTest, TheEndOfAWindowThatIsNotKnownIsIgnored) {
    launch();
    const std::string url = "tessarin-scheme://showProperties?path=/f";
    delegate->openURLs({url, url});
    const auto willClose = interface->windows[0]->willClose;
    willClose();
    willClose();
    EXPECT_EQ(delegate->openWindows(), 1U);
    delegate.reset();
    willClose();
}

TEST_F(AppDelegateTest, AWindowThatCannotBeMadeIsToldToTheSystemLog) {
    launch();
    interface->makesWindows = false;
    delegate->openURLs({"tessarin-scheme://showProperties?path=/f"});
    EXPECT_THAT(systemLog.lines(),
                Contains("Error: Could not load FileFiltersViewController from storyboard."));
    EXPECT_EQ(delegate->openWindows(), 0U);
}

TEST_F(AppDelegateTest, AServiceThatIsNotConnectedIsNotAskedForTheEncryption) {
    service.answersVersion = false;
    launch();
    EXPECT_FALSE(delegate->checkFileEncryption("/f"));
    EXPECT_THAT(service.messages(), Not(Contains("checkEncryptionStatus /f")));
}

TEST_F(AppDelegateTest, TheEncryptionIsWaitedForATenthOfASecondAndALateAnswerIsLost) {
    launch();
    service.requestDelay = 100ms - 1ns;
    EXPECT_TRUE(delegate->checkFileEncryption("/f"));
    service.requestDelay = 100ms + 1ns;
    const auto start = dispatch->now();
    EXPECT_FALSE(delegate->checkFileEncryption("/f"));
    EXPECT_EQ(dispatch->now() - start, 100ms);
    dispatch->advance(1s);  // the late answer finds nobody
    service.requestDelay = 0ns;
    service.encrypted = false;
    EXPECT_FALSE(delegate->checkFileEncryption("/f"));
}

TEST_F(AppDelegateTest, AWindowOfALateAnswerSaysNotEncrypted) {
    launch();
    service.requestDelay = 200ms;
    delegate->openURLs({"tessarin-scheme://showProperties?path=/f"});
    EXPECT_EQ(texts(0)["status"], "Status: Not Encrypted");
    EXPECT_EQ(texts(0)["state"], "Pending scan");
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
