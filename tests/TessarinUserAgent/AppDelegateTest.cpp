#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "FakeInterface.h"
#include "XPCCommon/ScriptedFinderExtension.h"
#include "support/FakeDispatch.h"
#include "support/LogCapture.h"
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
            std::make_shared<useragent::PermissionNotices>(useragent::PermissionNotices::Environment{
                notices, menu.extension, menu.panes, useragent::ToldOnce()}),
            dispatch,
            service.transport(),
            {[this] { return settings(); }, [] { return useragent::WallTime(); }},
            otherStatus});
    }
    // Launched, connected, refreshed once.
    void launch() {
        delegate->applicationDidFinishLaunching();
        dispatch->runUntilIdle();
    }
    // The same, with the icon switched off.
    void launchHidden() {
        service.visibility = {{"agentIconDisable", true}};
        launch();
        EXPECT_FALSE(interface->visible);
    }
    // Until there are windows for all of them.
    void open(const std::vector<std::string>& urls) {
        EXPECT_EQ(delegate->openURLs(urls), 0U);
        dispatch->runUntilIdle();
    }
    // What comes of a question how the agent is; nothing before `dispatch` has run.
    std::shared_ptr<std::optional<useragent::AgentStatus>> askStatus(bool withAddresses = false) {
        const auto status = std::make_shared<std::optional<useragent::AgentStatus>>();
        delegate->gatherStatus(withAddresses, [status](const std::string& json) {
            *status = cmn::proto::JsonToObjectImpl<useragent::AgentStatus>(json);
        });
        return status;
    }
    useragent::PropertiesTexts texts(std::size_t window) const {
        return interface->windows.at(window)->controller->viewDidLoad({});
    }

    fake::SystemLogCapture systemLog;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedFinderExtension service{dispatch};
    std::shared_ptr<fake::Interface> interface = std::make_shared<fake::Interface>();
    fake::Menu menu;
    std::shared_ptr<fake::Notices> notices = std::make_shared<fake::Notices>();
    std::function<cmn::proto::TSettings()> settings = [] { return cmn::proto::TSettings(); };
    useragent::StatusSource otherStatus = [](useragent::AgentStatus& status) {
        status.version = "4.5.6";
        status.browsers.push_back({"Firefox", 11, std::uint64_t{3}, "a.example"});
        status.lastReport = {"Firefox", 2, "b.example"};
    };
    std::shared_ptr<useragent::AppDelegate> delegate;
};

TEST_F(AppDelegateTest, TellsItsServiceItsIconAndThePermissionsOfTheMenu) {
    launch();
    interface->place = useragent::IconPlace::statusArea;
    const auto before = askStatus();
    dispatch->runUntilIdle();
    ASSERT_TRUE(before->has_value());
    EXPECT_EQ((*before)->version, "4.5.6");
    EXPECT_EQ((*before)->icon, "status area");
    ASSERT_EQ((*before)->services.size(), 1U);
    EXPECT_EQ((*before)->services[0].name, "com.tessarin.FinderExtension");
    EXPECT_TRUE((*before)->services[0].reached);
    EXPECT_TRUE(useragent::AllIsWell(**before));
    for (bool* const permission : {&service.fullDiskAccess, &menu.extension->enabled}) {
        *permission = false;
        const auto without = askStatus();
        dispatch->runUntilIdle();
        EXPECT_EQ((*without)->permissions.fullDiskAccess, service.fullDiskAccess);
        EXPECT_EQ((*without)->permissions.finderExtension, menu.extension->enabled);
        EXPECT_TRUE((*without)->permissions.accessibility);
        *permission = true;
    }
    menu.accessibility->trusted = false;
    const auto untrusted = askStatus();
    dispatch->runUntilIdle();
    EXPECT_FALSE((*untrusted)->permissions.accessibility);
}

TEST_F(AppDelegateTest, TellsAddressesToThoseWhoAskForThem) {
    launch();
    const auto without = askStatus(false);
    const auto with = askStatus(true);
    dispatch->runUntilIdle();
    EXPECT_EQ((*without)->browsers.at(0).address + (*without)->lastReport->address, "");
    EXPECT_EQ((*with)->browsers.at(0).address, "a.example");
    EXPECT_EQ((*with)->lastReport->address, "b.example");
}

TEST_F(AppDelegateTest, AServiceThatHangsKeepsNeitherTheMainThreadNorTheStatusWaiting) {
    launch();
    service.answersVersion = false;
    const auto before = dispatch->now();
    const auto status = askStatus();
    EXPECT_EQ(dispatch->now(), before) << "waited";
    dispatch->advance(100ms);
    ASSERT_TRUE(status->has_value());
    EXPECT_FALSE((*status)->permissions.fullDiskAccess);
}

TEST_F(AppDelegateTest, TellsItsStatusBeforeTheLaunchAndWithoutASource) {
    otherStatus = nullptr;
    delegate = makeDelegate();
    const auto status = askStatus();
    dispatch->runUntilIdle();
    ASSERT_TRUE(status->has_value());
    EXPECT_EQ((*status)->icon, "none");
    EXPECT_FALSE((*status)->services.at(0).reached);
}

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

TEST_F(AppDelegateTest, URLsFromBeforeTheLaunchAreOpenedInTheirOrderAfterTheFirstRefresh) {
    delegate->openURLs({"tessarin-scheme://showProperties?path=/first"});
    delegate->openURLs({"tessarin-scheme://showProperties?path=/second", "tessarin-scheme://other?path=/x"});
    EXPECT_THAT(interface->windows, IsEmpty());
    interface->onCreateWindow = [this] {
        EXPECT_EQ(interface->fullDiskAccessTitle(), "Full disk access: On") << "not refreshed";
    };
    delegate->applicationDidFinishLaunching();
    EXPECT_THAT(interface->windows, IsEmpty());
    dispatch->runUntilIdle();
    ASSERT_EQ(interface->windows.size(), 2U);
    EXPECT_EQ(texts(0).fileNameLabel, "/first");
    EXPECT_EQ(texts(1).fileNameLabel, "/second");
    dispatch->runUntilIdle();
    EXPECT_EQ(interface->windows.size(), 2U);
}

TEST_F(AppDelegateTest, RequestsAreTakenAtOnceAndEachWindowIsOpenedInATurnOfItsOwn) {
    launch();
    service.answersRequests = false;  // each window waits 100 ms for it, twice
    const auto start = dispatch->now();
    delegate->openURLs(
        {"tessarin-scheme://showProperties?path=/1", "tessarin-scheme://showProperties?path=/2"});
    delegate->openURLs({"tessarin-scheme://showProperties?path=/3"});
    EXPECT_EQ(dispatch->now(), start);
    EXPECT_THAT(interface->windows, IsEmpty());
    std::vector<std::size_t> windowsAtEachTurn;
    std::function<void()> otherWork = [&] {
        windowsAtEachTurn.push_back(interface->windows.size());
        if (windowsAtEachTurn.size() < 5) {
            dispatch->asyncMain(otherWork);
        }
    };
    dispatch->asyncMain(otherWork);
    dispatch->advance(10s);
    EXPECT_THAT(windowsAtEachTurn, ElementsAre(1U, 2U, 3U, 3U, 3U));
    EXPECT_EQ(texts(0).fileNameLabel, "/1");
    EXPECT_EQ(texts(1).fileNameLabel, "/2");
    EXPECT_EQ(texts(2).fileNameLabel, "/3");
}

TEST_F(AppDelegateTest, TheTokenOfARequestIsForTheFirstOfItsWindows) {
    launch();
    delegate->openURLs({"https://other", "tessarin-scheme://showProperties?path=/1",
                        "tessarin-scheme://showProperties?path=/2"},
                       "first");
    delegate->openURLs({"https://other"}, "lost");
    delegate->openURLs({"tessarin-scheme://showProperties?path=/3"}, "second");
    dispatch->runUntilIdle();
    ASSERT_EQ(interface->windows.size(), 3U);
    EXPECT_EQ(interface->windows[0]->activationToken, "first");
    EXPECT_EQ(interface->windows[1]->activationToken, "");
    EXPECT_EQ(interface->windows[2]->activationToken, "second");
}

TEST_F(AppDelegateTest, RequestsThatFindNoRoomAreCountedAndLogged) {
    launch();
    fake::LogCapture log;
    const std::size_t most = useragent::AppDelegate::kMostWaiting;
    std::vector<std::string> urls(most + 2, "tessarin-scheme://showProperties?path=/f");
    urls.emplace_back("https://other");
    EXPECT_EQ(delegate->openURLs(urls), 2U);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_TRUE(log.contains("2 requests to show a file's properties are dropped: 1000 are waiting"));
    dispatch->runUntilIdle();
    EXPECT_EQ(interface->windows.size(), most);
    open({"tessarin-scheme://showProperties?path=/f"});
    EXPECT_EQ(interface->windows.size(), most + 1);
}

TEST_F(AppDelegateTest, AWindowThatFailsIsLoggedAndTheNextOneIsOpened) {
    launch();
    fake::LogCapture log;
    interface->onShowWindow = [this] {
        interface->onShowWindow = [] {};
        throw std::runtime_error("no memory");
    };
    open({"tessarin-scheme://showProperties?path=/1", "tessarin-scheme://showProperties?path=/2"});
    EXPECT_TRUE(log.contains("A request to open something failed: no memory"));
    EXPECT_EQ(delegate->openWindows(), 1U);
    EXPECT_TRUE(interface->windows.at(0)->destroyed);
    EXPECT_EQ(texts(1).fileNameLabel, "/2");
}

TEST_F(AppDelegateTest, RequestsThatWaitGoWithTheDelegate) {
    launch();
    delegate->openURLs({"tessarin-scheme://showProperties?path=/1"});
    delegate.reset();
    dispatch->runUntilIdle();
    EXPECT_THAT(interface->windows, IsEmpty());
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

TEST_F(AppDelegateTest, ARequestOpensOneWindowForTheFile) {
    service.records = {{{"Name", "Cards"}}};
    launch();
    open({"tessarin-scheme://showProperties?path=/home/u/a%20b.txt"});
    ASSERT_EQ(interface->windows.size(), 1U);
    ASSERT_NE(interface->windows[0]->controller, nullptr);
    const useragent::FileFiltersViewController& controller = *interface->windows[0]->controller;
    EXPECT_EQ(controller.numberOfRows(), 1U);
    ASSERT_EQ(controller.filtersArray().size(), 1U);
    EXPECT_EQ(controller.filtersArray()[0].description("Name"), "Cards");
    EXPECT_EQ(controller.fileName(), "/home/u/a b.txt");
    EXPECT_TRUE(controller.isEncrypted());
    EXPECT_EQ(texts(0).fileNameLabel, "/home/u/a b.txt");
    EXPECT_EQ(texts(0).encryptionStatusLabel, "Status: Encrypted");
}

TEST_F(AppDelegateTest, TheWindowIsMadeFirstThenTheRecordsAreAskedForThenTheEncryptionThenItIsShown) {
    launch();
    const std::size_t before = service.messages().size();
    const auto asked = [&] {
        std::vector<std::string> messages = service.messages();
        messages.erase(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(before));
        messages.erase(std::remove(messages.begin(), messages.end(), "version"), messages.end());
        return messages;
    };
    std::vector<std::string> whenMade{"not made"};
    std::vector<std::string> whenShown;
    interface->onCreateWindow = [&] { whenMade = asked(); };
    interface->onShowWindow = [&] { whenShown = asked(); };
    open({"tessarin-scheme://showProperties?path=/home/u/a%20b.txt"});
    EXPECT_THAT(whenMade, IsEmpty());
    EXPECT_THAT(whenShown,
                ElementsAre("getScanResult /home/u/a b.txt", "checkEncryptionStatus /home/u/a b.txt"));
    EXPECT_EQ(asked(), whenShown);
}

TEST_F(AppDelegateTest, ARequestWithoutAPathOpensAWindowThatIsPending) {
    launch();
    open({"tessarin-scheme://showProperties"});
    ASSERT_EQ(interface->windows.size(), 1U);
    EXPECT_EQ(texts(0).fileNameLabel, "");
    EXPECT_EQ(texts(0).fileStateLabel, "Pending scan");
}

TEST_F(AppDelegateTest, NobodyIsAskedAboutANameThatIsNoText) {
    fake::LogCapture log;
    service.records = {{{"Name", "Cards"}}};
    launch();
    const auto before = service.messages();
    open({"tessarin-scheme://showProperties?path=/home/u/caf%E9%0A.txt"});
    EXPECT_EQ(service.messages(), before);
    ASSERT_EQ(interface->windows.size(), 1U);
    EXPECT_EQ(texts(0).fileNameLabel, "The name cannot be read: /home/u/caf\\xe9\\x0a.txt");
    EXPECT_EQ(texts(0).fileStateLabel, "Pending scan");
    EXPECT_EQ(texts(0).encryptionStatusLabel, "Status: Not Encrypted");
    EXPECT_EQ(log.linesWith("/home/u/caf\\xe9\\x0a.txt").size(), 1U);
    EXPECT_EQ(log.linesWith("WARN").size(), 1U);
}

TEST_F(AppDelegateTest, OtherUrlsDoNothing) {
    launch();
    const auto before = service.messages();
    open({"tessarin-scheme://other?path=/x", "https://showProperties?path=/x", "", "%"});
    EXPECT_THAT(interface->windows, IsEmpty());
    EXPECT_EQ(service.messages(), before);
}

TEST_F(AppDelegateTest, TwoUrlsForTheSameFileOpenTwoWindows) {
    launch();
    const std::string url = "tessarin-scheme://showProperties?path=/f";
    open({url, "tessarin-scheme://other", url});
    EXPECT_EQ(interface->windows.size(), 2U);
    EXPECT_EQ(delegate->openWindows(), 2U);
}

TEST_F(AppDelegateTest, ClosingOneOfTwoWindowsForTheSameFileForgetsExactlyThatOne) {
    launch();
    const std::string url = "tessarin-scheme://showProperties?path=/f";
    open({url, url});
    interface->windows[1]->willClose();
    EXPECT_TRUE(interface->windows[1]->destroyed);
    EXPECT_FALSE(interface->windows[0]->destroyed);
    EXPECT_EQ(delegate->openWindows(), 1U);
}

TEST_F(AppDelegateTest, TheEndOfAWindowThatIsNotKnownIsIgnored) {
    launch();
    const std::string url = "tessarin-scheme://showProperties?path=/f";
    open({url, url});
    const auto willClose = interface->windows[0]->willClose;
    willClose();
    willClose();
    EXPECT_EQ(delegate->openWindows(), 1U);
    delegate.reset();
    willClose();
}

TEST_F(AppDelegateTest, AWindowThatCannotBeMadeIsToldToTheSystemLogAndTheServiceIsNotAsked) {
    launch();
    interface->makesWindows = false;
    const auto before = service.messages();
    open({"tessarin-scheme://showProperties?path=/f"});
    EXPECT_THAT(systemLog.lines(),
                Contains("Error: Could not load FileFiltersViewController from storyboard."));
    EXPECT_EQ(service.messages(), before);
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
    open({"tessarin-scheme://showProperties?path=/f"});
    dispatch->advance(1s);
    EXPECT_EQ(texts(0).encryptionStatusLabel, "Status: Not Encrypted");
    EXPECT_EQ(texts(0).fileStateLabel, "Pending scan");
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
