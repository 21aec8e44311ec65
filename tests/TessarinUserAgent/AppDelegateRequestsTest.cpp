#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "AppDelegateFixture.h"
#include "support/LogCapture.h"

// Requests to show the properties of files, and their windows.
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

std::string Showing(const std::string& path) {
    return "tessarin-scheme://showProperties?path=" + path;
}

class AppDelegateRequestsTest : public AppDelegateFixture {
 protected:
    // Until there are windows for all of them.
    void open(const std::vector<std::string>& urls) {
        delegate->openURLs(urls);
        dispatch->runUntilIdle();
    }
    useragent::PropertiesTexts texts(std::size_t window) const {
        return interface->windows.at(window)->controller->viewDidLoad({});
    }
};

TEST_F(AppDelegateRequestsTest, URLsFromBeforeTheLaunchAreOpenedInTheirOrderAfterTheFirstRefresh) {
    delegate->openURLs({Showing("/first")});
    delegate->openURLs({Showing("/second"), "tessarin-scheme://other?path=/x"});
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

TEST_F(AppDelegateRequestsTest, RequestsAreTakenAtOnceAndEachWindowIsOpenedInATurnOfItsOwn) {
    launch();
    service.answersRequests = false;  // each window waits 100 ms for it, twice
    const auto start = dispatch->now();
    delegate->openURLs({Showing("/1"), Showing("/2")});
    delegate->openURLs({Showing("/3")});
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

TEST_F(AppDelegateRequestsTest, TheTokenOfARequestIsForTheFirstOfItsWindows) {
    launch();
    delegate->openURLs({"https://other", Showing("/1"), Showing("/2")}, "first");
    delegate->openURLs({"https://other"}, "lost");
    delegate->openURLs({Showing("/3")}, "second");
    dispatch->runUntilIdle();
    ASSERT_EQ(interface->windows.size(), 3U);
    EXPECT_EQ(interface->windows[0]->activationToken, "first");
    EXPECT_EQ(interface->windows[1]->activationToken, "");
    EXPECT_EQ(interface->windows[2]->activationToken, "second");
}

TEST_F(AppDelegateRequestsTest, RequestsThatFindNoRoomAreCountedAndLogged) {
    launch();
    fake::LogCapture log;
    const std::size_t most = useragent::AppDelegate::kMostWaiting;
    std::vector<std::string> urls(most + 2, Showing("/f"));
    urls.emplace_back("https://other");
    std::vector<std::size_t> notOpened;
    delegate->openURLs(urls, {}, [&](std::size_t count) { notOpened.push_back(count); });
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_TRUE(log.contains("2 requests to show a file's properties are dropped: 1000 are waiting"));
    dispatch->runUntilIdle();
    EXPECT_EQ(interface->windows.size(), most);
    EXPECT_THAT(notOpened, ElementsAre(2U));
    open({Showing("/f")});
    EXPECT_EQ(interface->windows.size(), most + 1);
}

TEST_F(AppDelegateRequestsTest, AWindowThatFailsIsLoggedAndTheNextOneIsOpened) {
    launch();
    fake::LogCapture log;
    interface->onShowWindow = [this] {
        interface->onShowWindow = [] {};
        throw std::runtime_error("no memory");
    };
    open({Showing("/1"), Showing("/2")});
    EXPECT_TRUE(log.contains("A request to open something failed: no memory"));
    EXPECT_EQ(delegate->openWindows(), 1U);
    EXPECT_TRUE(interface->windows.at(0)->destroyed);
    EXPECT_EQ(texts(1).fileNameLabel, "/2");
}

TEST_F(AppDelegateRequestsTest, RequestsThatWaitGoWithTheDelegateAndWhoAskedIsTold) {
    launch();
    std::vector<std::size_t> notOpened;
    delegate->openURLs({Showing("/1")}, {}, [&](std::size_t count) { notOpened.push_back(count); });
    delegate.reset();
    dispatch->runUntilIdle();
    EXPECT_THAT(interface->windows, IsEmpty());
    EXPECT_THAT(notOpened, ElementsAre(1U));
}

TEST_F(AppDelegateRequestsTest, WhoAsksIsToldWhenTheLastOfTheWindowsStands) {
    launch();
    std::vector<std::size_t> windowsWhenTold;
    const auto told = [&](std::size_t notOpened) {
        EXPECT_EQ(notOpened, 0U);
        windowsWhenTold.push_back(delegate->openWindows());
    };
    delegate->openURLs({"https://other"}, {}, told);
    EXPECT_THAT(windowsWhenTold, ElementsAre(0U)) << "nothing of it waits";
    delegate->openURLs({Showing("/1"), Showing("/2")}, {}, told);
    delegate->openURLs({Showing("/3")}, {}, told);
    EXPECT_THAT(windowsWhenTold, ElementsAre(0U));
    dispatch->runUntilIdle();
    EXPECT_THAT(windowsWhenTold, ElementsAre(0U, 2U, 3U));
}

TEST_F(AppDelegateRequestsTest, WhoAsksWaitsFiveSecondsAtMostAndTheWindowsOpenLater) {
    std::vector<std::size_t> notOpened;
    const auto told = [&](std::size_t count) { notOpened.push_back(count); };
    const std::vector<std::string> all(useragent::AppDelegate::kMostWaiting - 1, Showing("/f"));
    delegate->openURLs(all, {}, told);
    delegate->openURLs({Showing("/1"), Showing("/2")}, {}, told);
    dispatch->advance(5s - 1ms);
    EXPECT_THAT(notOpened, IsEmpty());
    dispatch->advance(1ms);
    EXPECT_THAT(notOpened, ElementsAre(0U, 1U)) << "what was dropped is told";
    launch();
    dispatch->runUntilIdle();
    EXPECT_EQ(interface->windows.size(), useragent::AppDelegate::kMostWaiting);
    EXPECT_THAT(notOpened, ElementsAre(0U, 1U)) << "once";
}

TEST_F(AppDelegateRequestsTest, WhoAsksIsToldHowManyWindowsCannotBeShown) {
    launch();
    interface->onShowWindow = [this] {
        interface->onShowWindow = [] {};
        throw std::runtime_error("no memory");
    };
    std::vector<std::size_t> notOpened;
    delegate->openURLs({Showing("/1"), Showing("/2")}, {},
                       [&](std::size_t count) { notOpened.push_back(count); });
    dispatch->runUntilIdle();
    EXPECT_THAT(notOpened, ElementsAre(1U));
    interface->makesWindows = false;
    delegate->openURLs({Showing("/3")}, {}, [&](std::size_t count) { notOpened.push_back(count); });
    dispatch->runUntilIdle();
    EXPECT_THAT(notOpened, ElementsAre(1U, 1U));
}

TEST_F(AppDelegateRequestsTest, AtTheEndWhatWaitsIsNotOpenedAndWhoAskedIsToldAtOnce) {
    launch();
    std::vector<std::size_t> notOpened;
    delegate->openURLs({Showing("/1"), Showing("/2")}, {},
                       [&](std::size_t count) { notOpened.push_back(count); });
    EXPECT_TRUE(delegate->applicationWillEnd([] { ADD_FAILURE(); }));
    EXPECT_THAT(notOpened, ElementsAre(2U));
    dispatch->advance(10s);
    EXPECT_THAT(interface->windows, IsEmpty());
}

TEST_F(AppDelegateRequestsTest, AWindowThatHasJustOpenedIsSeenForASecondBeforeTheEnd) {
    launch();
    open({Showing("/1")});
    dispatch->advance(400ms);
    open({Showing("/2")});
    dispatch->advance(300ms);
    int seen = 0;
    EXPECT_FALSE(delegate->applicationWillEnd([&] { ++seen; }));
    dispatch->advance(699ms);
    EXPECT_EQ(seen, 0) << "one of them has not been there for so long";
    dispatch->advance(1ms);
    EXPECT_EQ(seen, 1);
    EXPECT_TRUE(delegate->applicationWillEnd([&] { ++seen; }));
    dispatch->advance(10s);
    EXPECT_EQ(seen, 1);
}

TEST_F(AppDelegateRequestsTest, AWindowThatTheUserHasClosedIsNotWaitedForAtTheEnd) {
    launch();
    open({Showing("/1"), Showing("/2")});
    interface->windows[0]->willClose();
    int seen = 0;
    EXPECT_FALSE(delegate->applicationWillEnd([&] { ++seen; }));
    interface->windows[1]->willClose();
    EXPECT_EQ(seen, 1);
}

TEST_F(AppDelegateRequestsTest, ARequestOpensOneWindowForTheFile) {
    service.records = {{{"Name", "Cards"}}};
    launch();
    open({Showing("/home/u/a%20b.txt")});
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

TEST_F(AppDelegateRequestsTest, TheWindowIsMadeFirstThenTheRecordsAreAskedForThenTheEncryptionThenItIsShown) {
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
    open({Showing("/home/u/a%20b.txt")});
    EXPECT_THAT(whenMade, IsEmpty());
    EXPECT_THAT(whenShown,
                ElementsAre("getScanResult /home/u/a b.txt", "checkEncryptionStatus /home/u/a b.txt"));
    EXPECT_EQ(asked(), whenShown);
}

TEST_F(AppDelegateRequestsTest, ARequestWithoutAPathOpensAWindowThatIsPending) {
    launch();
    open({"tessarin-scheme://showProperties"});
    ASSERT_EQ(interface->windows.size(), 1U);
    EXPECT_EQ(texts(0).fileNameLabel, "");
    EXPECT_EQ(texts(0).fileStateLabel, "Pending scan");
}

TEST_F(AppDelegateRequestsTest, NobodyIsAskedAboutANameThatIsNoText) {
    fake::LogCapture log;
    service.records = {{{"Name", "Cards"}}};
    launch();
    const auto before = service.messages();
    open({Showing("/home/u/caf%E9%0A.txt")});
    EXPECT_EQ(service.messages(), before);
    ASSERT_EQ(interface->windows.size(), 1U);
    EXPECT_EQ(texts(0).fileNameLabel, "The name cannot be read: /home/u/caf\\xe9\\x0a.txt");
    EXPECT_EQ(texts(0).fileStateLabel, "Pending scan");
    EXPECT_EQ(texts(0).encryptionStatusLabel, "Status: Not Encrypted");
    EXPECT_EQ(log.linesWith("/home/u/caf\\xe9\\x0a.txt").size(), 1U);
    EXPECT_EQ(log.linesWith("WARN").size(), 1U);
}

TEST_F(AppDelegateRequestsTest, OtherUrlsDoNothing) {
    launch();
    const auto before = service.messages();
    open({"tessarin-scheme://other?path=/x", "https://showProperties?path=/x", "", "%"});
    EXPECT_THAT(interface->windows, IsEmpty());
    EXPECT_EQ(service.messages(), before);
}

TEST_F(AppDelegateRequestsTest, TwoUrlsForTheSameFileOpenTwoWindows) {
    launch();
    open({Showing("/f"), "tessarin-scheme://other", Showing("/f")});
    EXPECT_EQ(interface->windows.size(), 2U);
    EXPECT_EQ(delegate->openWindows(), 2U);
}

TEST_F(AppDelegateRequestsTest, ClosingOneOfTwoWindowsForTheSameFileForgetsExactlyThatOne) {
    launch();
    open({Showing("/f"), Showing("/f")});
    interface->windows[1]->willClose();
    EXPECT_TRUE(interface->windows[1]->destroyed);
    EXPECT_FALSE(interface->windows[0]->destroyed);
    EXPECT_EQ(delegate->openWindows(), 1U);
}

TEST_F(AppDelegateRequestsTest, TheEndOfAWindowThatIsNotKnownIsIgnored) {
    launch();
    open({Showing("/f"), Showing("/f")});
    const auto willClose = interface->windows[0]->willClose;
    willClose();
    willClose();
    EXPECT_EQ(delegate->openWindows(), 1U);
    delegate.reset();
    willClose();
}

TEST_F(AppDelegateRequestsTest, AWindowThatCannotBeMadeIsToldToTheSystemLogAndTheServiceIsNotAsked) {
    launch();
    interface->makesWindows = false;
    const auto before = service.messages();
    open({Showing("/f")});
    EXPECT_THAT(systemLog.lines(),
                Contains("Error: Could not load FileFiltersViewController from storyboard."));
    EXPECT_EQ(service.messages(), before);
    EXPECT_EQ(delegate->openWindows(), 0U);
}

TEST_F(AppDelegateRequestsTest, AServiceThatIsNotConnectedIsNotAskedForTheEncryption) {
    service.answersVersion = false;
    launch();
    EXPECT_FALSE(delegate->checkFileEncryption("/f"));
    EXPECT_THAT(service.messages(), Not(Contains("checkEncryptionStatus /f")));
}

TEST_F(AppDelegateRequestsTest, TheEncryptionIsWaitedForATenthOfASecondAndALateAnswerIsLost) {
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

TEST_F(AppDelegateRequestsTest, AWindowOfALateAnswerSaysNotEncrypted) {
    launch();
    service.requestDelay = 200ms;
    open({Showing("/f")});
    dispatch->advance(1s);
    EXPECT_EQ(texts(0).encryptionStatusLabel, "Status: Not Encrypted");
    EXPECT_EQ(texts(0).fileStateLabel, "Pending scan");
}

}  // namespace
