#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "PollingGate.h"
#include "XPCCommon/ScriptedUserAgent.h"
#include "support/FakeAccessibility.h"
#include "support/FakeWindowList.h"
#include "support/LogCapture.h"
#include "useragent/BrowserURLWatcher.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;
using useragent::WindowInfo;

constexpr const char* kChanged = "AXValueChanged";
constexpr const char* kWindowChanged = "AXMainWindowChanged";

template <typename Condition>
bool WaitUntil(Condition condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

class BrowserURLWatcherTest : public testing::Test {
 protected:
    std::shared_ptr<useragent::BrowserURLWatcher> create(const std::vector<std::string>& browsers = {
                                                             "Safari", "Google Chrome", "Firefox"}) {
        return useragent::CreateBrowserURLWatcher(browsers, {accessibility, windows, gate, [this] {
                                                                 if (onNow) {
                                                                     onNow();
                                                                 }
                                                                 return std::chrono::steady_clock::now() +
                                                                        skipped.load();
                                                             }});
    }
    void start(const std::vector<std::string>& browsers = {"Safari", "Google Chrome", "Firefox"}) {
        watcher = create(browsers);
        gate->awaitFirstCycle();
    }
    void startWithClient() {
        start();
        watcher->setXPCClient(daemon.client());
    }
    void show(std::vector<WindowInfo> list) { windows->set(std::move(list)); }
    void TearDown() override { watcher.reset(); }

    fake::LogCapture log;
    ScriptedUserAgent daemon;
    std::shared_ptr<fake::Accessibility> accessibility = std::make_shared<fake::Accessibility>();
    std::shared_ptr<fake::WindowList> windows = std::make_shared<fake::WindowList>();
    std::function<void()> onNow;  // called before the clock is read; set while the polling thread pauses
    std::atomic<std::chrono::nanoseconds> skipped{std::chrono::nanoseconds(0)};
    std::shared_ptr<PollingGate> gate = std::make_shared<PollingGate>();
    std::shared_ptr<useragent::BrowserURLWatcher> watcher;
};

TEST_F(BrowserURLWatcherTest, WatchesABrowserItFindsAndReadsItsURL) {
    accessibility->addBrowser(11, "a.example/1");
    show({{"Firefox", 11}});
    start();
    EXPECT_EQ(watcher->getURL("Firefox"), "a.example/1");
    EXPECT_EQ(accessibility->observerCount(), 2);
    for (const char* const line :
         {"Init context for -- Firefox", "Found URL element for -- Firefox", "Current URL -- a.example/1"}) {
        EXPECT_THAT(log.linesWith(line), ElementsAre(StartsWith("[ INFO]"))) << line;
    }
}

TEST_F(BrowserURLWatcherTest, TellsWhichBrowsersAreWatchedAndSinceWhenTheyAreRead) {
    const auto before = std::chrono::steady_clock::now();
    skipped = std::chrono::hours(1);
    accessibility->addBrowser(11, "a.example/1");
    const auto slow = accessibility->addBrowser(12, "b");
    show({{"Firefox", 11}, {"Safari", 12}});
    std::vector<useragent::BrowserURLWatcher::Watched> meanwhile;
    std::atomic<bool> known{false};
    accessibility->onRead = [&](const std::string&) {
        if (known && meanwhile.empty()) {
            meanwhile = watcher->watched();
        }
    };
    start();
    known = true;
    const auto watched = watcher->watched();
    ASSERT_EQ(watched.size(), 2U);
    EXPECT_EQ(watched[0].name, "Firefox");
    EXPECT_EQ(watched[0].pid, 11);
    EXPECT_EQ(watched[0].url, "a.example/1");
    ASSERT_TRUE(watched[0].readSince);
    EXPECT_GE(*watched[0].readSince, before + skipped.load());
    accessibility->notify(slow.application, kWindowChanged);
    ASSERT_EQ(meanwhile.size(), 2U);
    EXPECT_TRUE(meanwhile[0].readSince);
    EXPECT_FALSE(meanwhile[1].readSince) << "its new window is not read yet";
    watcher->stop();
    EXPECT_TRUE(watcher->watched().empty());
}

TEST_F(BrowserURLWatcherTest, PausesFiveSecondsAtTheEndOfEachCycle) {
    start();
    gate->cycle();
    windows->set(std::nullopt);
    gate->cycle();
    EXPECT_THAT(gate->pauses(),
                ElementsAre(std::chrono::seconds(5), std::chrono::seconds(5), std::chrono::seconds(5)));
}

TEST_F(BrowserURLWatcherTest, SendsEveryChangeWithNameAndPid) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Google Chrome", 11}});
    startWithClient();
    browser.field->set("AXValue", "b");
    EXPECT_EQ(accessibility->notify(browser.field, kChanged), 1);
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"b", "Google Chrome", 11}));
    EXPECT_EQ(watcher->getURL("Google Chrome"), "b");
    EXPECT_THAT(log.linesWith("URL changed for Google Chrome b 11"), ElementsAre(StartsWith("[DEBUG]")));
}

TEST_F(BrowserURLWatcherTest, AnAddressForgesNoLineOfTheLogAndIsSentAsItIs) {
    const auto browser = accessibility->addBrowser(11, "a\nb");
    show({{"Firefox", 11}});
    startWithClient();
    EXPECT_EQ(log.count("Current URL -- a\\x0ab"), 1U);
    browser.field->set("AXValue", "\x1B[2Jc");
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(log.count("URL changed for Firefox \\x1b[2Jc 11"), 1U);
    browser.field->set("AXValue", fake::Text("new", fake::String::Storage::convertible));
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(log.count("URL changed for Firefox -- \\x1b[2Jc"), 1U);
    EXPECT_THAT(daemon.reports.all(),
                ElementsAre(SentURL{"\x1B[2Jc", "Firefox", 11}, SentURL{"new", "Firefox", 11}));
    EXPECT_EQ(watcher->getURL("x\r"), "");
    EXPECT_EQ(log.count("getUrl for browser: 'x\\x0d' -- failed."), 1U);
}

TEST_F(BrowserURLWatcherTest, SendsANotificationAgainThoughTheURLIsTheSame) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    accessibility->notify(browser.field, kChanged);
    accessibility->notify(browser.field, kChanged);
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"a", "Firefox", 11}, SentURL{"a", "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, SendsTheURLReadWhenAContextIsMade) {
    startWithClient();
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    gate->cycle();
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"a", "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, WithoutClientURLsAreStoredButNotSent) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    browser.field->set("AXValue", "b");
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "b");
    EXPECT_THAT(daemon.reports.all(), IsEmpty());
}

TEST_F(BrowserURLWatcherTest, AClientThatIsGoneIsNotUsed) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    daemon.dropClient();
    browser.field->set("AXValue", "b");
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "b");
    EXPECT_THAT(daemon.reports.all(), IsEmpty());
}

TEST_F(BrowserURLWatcherTest, AnEmptyFieldStoresTheEmptyValueAndSendsNothing) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->set("AXValue", "");
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "");
    EXPECT_THAT(daemon.reports.all(), IsEmpty());
}

TEST_F(BrowserURLWatcherTest, ABrowserWithoutOnScreenWindowIsTreatedAsClosed) {
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    show({});
    gate->cycle();
    EXPECT_EQ(watcher->getURL("Firefox"), "");
    EXPECT_EQ(accessibility->observerCount(), 0);
    EXPECT_THAT(log.linesWith("getUrl for browser: 'Firefox' -- failed."),
                ElementsAre(StartsWith("[DEBUG]")));
}

TEST_F(BrowserURLWatcherTest, TheFrontMostWindowDecidesWhichProcessIsWatched) {
    accessibility->addBrowser(11, "back");
    accessibility->addBrowser(12, "front");
    show({{"Other", 9}, {"Firefox", 12}, {"Firefox", 11}});
    start();
    EXPECT_EQ(watcher->getURL("Firefox"), "front");
    EXPECT_THAT(accessibility->preparedPids().back(), ElementsAre(12));
}

TEST_F(BrowserURLWatcherTest, ABrowserRestartedUnderANewPidGetsANewContext) {
    const auto before = accessibility->addBrowser(11, "old");
    show({{"Firefox", 11}});
    startWithClient();
    const auto after = accessibility->addBrowser(12, "new");
    show({{"Firefox", 12}});
    gate->cycle();
    EXPECT_EQ(watcher->getURL("Firefox"), "new");
    EXPECT_EQ(accessibility->notify(before.field, kChanged), 0);
    EXPECT_EQ(accessibility->notify(after.field, kChanged), 1);
    EXPECT_THAT(log.linesWith("Init context for -- Firefox"), testing::SizeIs(2));
}

TEST_F(BrowserURLWatcherTest, ABrowserAlreadyWatchedIsLeftAlone) {
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    for (int i = 0; i < 10; ++i) {
        gate->cycle();
    }
    EXPECT_EQ(accessibility->observersCreated(), 2);
    EXPECT_THAT(log.linesWith("Init context"), testing::SizeIs(1));
}

TEST_F(BrowserURLWatcherTest, ANameGivenTwiceIsWatchedOnce) {
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start({"Firefox", "Firefox"});
    EXPECT_EQ(accessibility->observersCreated(), 2);
    EXPECT_THAT(log.linesWith("Init context for -- Firefox"), testing::SizeIs(1));
}

TEST_F(BrowserURLWatcherTest, NamesAreComparedExactly) {
    accessibility->addBrowser(11, "a");
    show({{"firefox", 11}, {"Firefox ESR", 11}, {std::nullopt, 11}});
    start();
    EXPECT_EQ(accessibility->observersCreated(), 0);
}

TEST_F(BrowserURLWatcherTest, BrowsersAreInitialisedInNameOrder) {
    for (const int pid : {1, 2, 3}) {
        accessibility->addBrowser(pid, "u" + std::to_string(pid));
    }
    show({{"Safari", 3}, {"Google Chrome", 2}, {"Firefox", 1}});
    start();
    const auto lines = log.linesWith("Current URL -- ");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[0], testing::HasSubstr("u1"));
    EXPECT_THAT(lines[1], testing::HasSubstr("u2"));
    EXPECT_THAT(lines[2], testing::HasSubstr("u3"));
}

TEST_F(BrowserURLWatcherTest, AFailedWindowListIsLoggedAndKeepsTheContexts) {
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    windows->set(std::nullopt);
    gate->cycle();
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
    EXPECT_THAT(log.linesWith("[ WARN]"),
                ElementsAre(testing::EndsWith("CGWindowListCopyWindowInfo -- failed.")));
}

TEST_F(BrowserURLWatcherTest, BrowsersAreLookedAtWithoutTheirTitlesWhileTheWindowListFails) {
    struct KeepsTitles : fake::Accessibility {
        void prepare(const std::vector<WindowInfo>& browsers) override {
            titles.push_back(browsers.empty() ? std::nullopt : browsers.front().title);
            fake::Accessibility::prepare(browsers);
        }
        std::vector<std::optional<std::string>> titles;
    };
    const auto kept = std::make_shared<KeepsTitles>();
    accessibility = kept;
    const auto browser = accessibility->addBrowser(11, "a");
    windows->set(std::nullopt);
    start();
    EXPECT_THAT(accessibility->preparedPids(), IsEmpty()) << "none was ever found";
    show({{"Firefox", 11, "Page"}});
    gate->cycle();
    windows->set(std::nullopt);
    accessibility->onPrepare = [&] {
        browser.field->set("AXValue", "b");
        EXPECT_EQ(accessibility->notify(browser.field, kChanged), 1);
    };
    gate->cycle();
    accessibility->onPrepare = nullptr;
    EXPECT_EQ(watcher->getURL("Firefox"), "b") << "a change that no signal told";
    gate->cycle();
    EXPECT_THAT(accessibility->preparedPids(),
                ElementsAre(ElementsAre(11), ElementsAre(11), ElementsAre(11)));
    EXPECT_THAT(kept->titles, ElementsAre("Page", std::nullopt, std::nullopt))
        << "another window may have come to the front";
    EXPECT_EQ(log.count("CGWindowListCopyWindowInfo -- failed."), 3U);
    EXPECT_EQ(accessibility->observersCreated(), 2);
    show({});
    gate->cycle();
    windows->set(std::nullopt);
    gate->cycle();
    EXPECT_THAT(accessibility->preparedPids().back(), IsEmpty()) << "none was found last";
}

TEST_F(BrowserURLWatcherTest, AMainWindowChangeFindsTheFieldOfTheNewWindow) {
    const auto browser = accessibility->addBrowser(11, "first");
    show({{"Firefox", 11}});
    startWithClient();
    const auto other = accessibility->addBrowser(11, "second");
    browser.application->set("AXMainWindow", AXValue(AXElementRef(other.window)));
    accessibility->setApplication(11, browser.application);
    EXPECT_EQ(accessibility->notify(browser.application, kWindowChanged), 1);
    EXPECT_EQ(watcher->getURL("Firefox"), "second");
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"second", "Firefox", 11}));
    EXPECT_EQ(accessibility->notify(browser.field, kChanged), 0);
    EXPECT_EQ(accessibility->notify(other.field, kChanged), 1);
    EXPECT_EQ(accessibility->observerCount(), 2);
    EXPECT_THAT(log.linesWith("Init context"), testing::SizeIs(1))
        << "a change of window writes no such line";
}

TEST_F(BrowserURLWatcherTest, AMainWindowWithoutFieldDropsTheContextUntilTheNextCycle) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    browser.window->children({});
    accessibility->notify(browser.application, kWindowChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "");
    EXPECT_EQ(accessibility->observerCount(), 0);
    browser.window->children({AXElementRef(browser.field)});
    gate->cycle();
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
}

TEST_F(BrowserURLWatcherTest, EachFailureOfSettingUpIsLoggedAndRetriedInTheNextCycle) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    accessibility->setApplication(11, nullptr);
    start();
    EXPECT_TRUE(log.contains("AXUIElementCreateApplication -- failed"));

    accessibility->setApplication(11, browser.application);
    browser.application->fail("AXMainWindow", AXError::cannotComplete);
    gate->cycle();
    EXPECT_TRUE(log.contains("Get kAXMainWindowAttribute -- failed: -25204"));

    browser.application->set("AXMainWindow", AXValue(AXElementRef(browser.window)));
    accessibility->createObserverError = AXError::failure;
    gate->cycle();
    EXPECT_TRUE(log.contains("AXObserverCreateWithInfoCallback -- failed: -25200"));
    EXPECT_TRUE(log.contains("Subscribe kAXMainWindowChangedNotification -- failed"));

    accessibility->createObserverError = AXError::success;
    accessibility->addNotificationError = AXError::notificationUnsupported;
    gate->cycle();
    EXPECT_TRUE(log.contains("AXObserverAddNotification -- failed: -25207"));

    accessibility->addNotificationError = AXError::success;
    browser.window->children({});
    gate->cycle();
    EXPECT_TRUE(log.contains("URL Element not found"));
    EXPECT_EQ(log.count("[ERROR]"), 7u);
    EXPECT_EQ(watcher->getURL("Firefox"), "");
    EXPECT_EQ(accessibility->observerCount(), 0);

    browser.window->children({AXElementRef(browser.field)});
    gate->cycle();
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
    EXPECT_EQ(log.count("Init context for -- Firefox"), 6u);
}

TEST_F(BrowserURLWatcherTest, AFieldThatCannotBeSubscribedFailsTheContext) {
    const auto browser = accessibility->addBrowser(11, "a");
    accessibility->onRead = [this](const std::string& attribute) {
        if (attribute == "AXChildren") {
            accessibility->addNotificationError = AXError::notificationUnsupported;
        }
    };
    show({{"Firefox", 11}});
    start();
    EXPECT_THAT(log.linesWith("Subscribe kAXValueChangedNotification -- failed"),
                ElementsAre(StartsWith("[ERROR]")));
    EXPECT_EQ(accessibility->observerCount(), 0);
}

TEST_F(BrowserURLWatcherTest, AValueThatCannotBeReadKeepsTheStoredURL) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->fail("AXValue", AXError::cannotComplete);
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
    EXPECT_THAT(daemon.reports.all(), IsEmpty());
    EXPECT_THAT(log.linesWith("AXUIElementCopyAttributeValue -- failed: -25204"),
                ElementsAre(StartsWith("[DEBUG]")));
}

TEST_F(BrowserURLWatcherTest, AValueWithoutDirectPointerIsConvertedAfterTheOldURLWasLogged) {
    const auto browser = accessibility->addBrowser(11, "old");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->set("AXValue", fake::Text("new", fake::String::Storage::convertible));
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "new");
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"new", "Firefox", 11}));
    EXPECT_THAT(log.linesWith("URL changed for Firefox -- old"), ElementsAre(StartsWith("[DEBUG]")));
    EXPECT_FALSE(log.contains("URL changed for Firefox -- new"));
}

TEST_F(BrowserURLWatcherTest, AValueThatCannotBeConvertedSendsTheStoredURLAgain) {
    const auto browser = accessibility->addBrowser(11, "old");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->set("AXValue", fake::Text("new", fake::String::Storage::inconvertible));
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "old");
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"old", "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, AConversionThatNeedsTheWholeMaximumSizeFails) {
    // The buffer has one byte more than is passed on, so three bytes of text and a NUL do not fit into three.
    const auto browser = accessibility->addBrowser(11, "old");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->set("AXValue", fake::Text("\u20ac", fake::String::Storage::convertible));
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "old");
}

TEST_F(BrowserURLWatcherTest, AHugeValueIsStoredAndSentWhole) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    const std::string huge(1024 * 1024, 'x');
    browser.field->set("AXValue", huge);
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), huge);
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{huge, "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, ANotificationOfAProcessThatIsNotWatchedIsIgnored) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    const auto stranger = std::make_shared<fake::Element>(99);
    stranger->set("AXValue", "strange");
    EXPECT_EQ(accessibility->notify(browser.field, kChanged, stranger), 1);
    EXPECT_EQ(accessibility->notify(browser.application, kWindowChanged, stranger), 1);
    EXPECT_THAT(daemon.reports.all(), IsEmpty());
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
    EXPECT_EQ(accessibility->observersCreated(), 2);
    EXPECT_EQ(log.count("[ERROR]"), 0u);
}

TEST_F(BrowserURLWatcherTest, ANotificationWhosePidCannotBeReadIsLoggedAndDropped) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    accessibility->getPidError = AXError::invalidUIElement;
    accessibility->notify(browser.field, kChanged);
    accessibility->notify(browser.application, kWindowChanged);
    EXPECT_THAT(log.linesWith("AXUIElementGetPid -- failed: -25202"),
                ElementsAre(StartsWith("[ERROR]"), StartsWith("[ERROR]")));
    EXPECT_THAT(daemon.reports.all(), IsEmpty());
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
}

TEST_F(BrowserURLWatcherTest, AnExceptionEndsNeitherTheWatchingNorTheMainLoop) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    accessibility->onRead = [](const std::string&) { throw std::runtime_error("out of everything"); };
    start();
    EXPECT_THAT(log.linesWith("A look at the browsers failed: out of everything"),
                ElementsAre(StartsWith("[ERROR]")));
    EXPECT_EQ(accessibility->observerCount(), 0) << "no half context is left";
    accessibility->onRead = nullptr;
    gate->cycle();
    watcher->setXPCClient(daemon.client());
    EXPECT_EQ(watcher->getURL("Firefox"), "a");

    accessibility->onRead = [](const std::string&) { throw std::runtime_error("again"); };
    accessibility->notify(browser.field, kChanged);
    accessibility->notify(browser.application, kWindowChanged);
    EXPECT_THAT(log.linesWith("A notification of a browser could not be handled: again"),
                ElementsAre(StartsWith("[ERROR]"), StartsWith("[ERROR]")));
    accessibility->onRead = nullptr;
    gate->cycle();
    EXPECT_EQ(watcher->getURL("Firefox"), "a");
}

TEST_F(BrowserURLWatcherTest, AnAddressThatIsNotUTF8IsStoredAndSentAsItIs) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->set("AXValue", "a\xff\xc3(");
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(watcher->getURL("Firefox"), "a\xff\xc3(");
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"a\xff\xc3(", "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, ASearchThatTakesTooLongIsEndedAndSaidSo) {
    const auto browser = accessibility->addBrowser(11, "a");
    accessibility->onRead = [this](const std::string& attribute) {
        if (attribute == "AXRole") {
            skipped = std::chrono::nanoseconds(std::chrono::seconds(2));
        }
    };
    show({{"Firefox", 11}});
    start();
    EXPECT_THAT(log.linesWith("The search for the URL field of Firefox took too long and was ended"),
                ElementsAre(StartsWith("[ WARN]")));
    EXPECT_THAT(log.linesWith("URL Element not found"), ElementsAre(StartsWith("[ERROR]")));
}

TEST_F(BrowserURLWatcherTest, StopEndsThePauseAndLeavesNothingObserved) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    auto stopped = std::async(std::launch::async, [this] { watcher->stop(); });
    EXPECT_EQ(stopped.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(gate->pauses().size(), 1u) << "its time never passes";
    gate->signal();  // so that a failure does not hang
    stopped.get();
    EXPECT_EQ(windows->calls(), 1);
    EXPECT_EQ(accessibility->observerCount(), 0);
    EXPECT_EQ(accessibility->notify(browser.field, kChanged), 0);
    EXPECT_EQ(watcher->getURL("Firefox"), "");
}

TEST_F(BrowserURLWatcherTest, StopMayBeCalledAgainAndLeavesTheDestructorNothingToDo) {
    start();
    watcher->stop();
    watcher->stop();
    EXPECT_EQ(gate->pauses().size(), 1u);
    // As on a thread that must not wait for the polling thread: it has nothing to wait for.
    gate->beginCycle();
    std::async(std::launch::async, [this] { watcher.reset(); }).get();
    EXPECT_EQ(windows->calls(), 1);
}

TEST_F(BrowserURLWatcherTest, StopRemovesTheObserversBeforeItWaitsForThePollingThread) {
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    std::promise<void> inside;
    std::promise<void> leave;
    accessibility->onPrepare = [&] {
        inside.set_value();
        leave.get_future().wait();
    };
    gate->beginCycle();
    inside.get_future().wait();
    auto stopped = std::async(std::launch::async, [this] { watcher->stop(); });
    EXPECT_TRUE(WaitUntil([&] { return accessibility->observerCount() == 0; }));
    EXPECT_EQ(stopped.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    leave.set_value();
    stopped.get();
    EXPECT_EQ(accessibility->observersCreated(), 2) << "the cycle under way makes no contexts any more";
}

TEST_F(BrowserURLWatcherTest, ASearchIsEndedByStopWithoutAWord) {
    const auto browser = accessibility->addBrowser(11, "a");
    browser.window->children(
        {AXElementRef(std::make_shared<fake::Element>(11)), AXElementRef(browser.field)});
    std::atomic<bool> searches{false};
    accessibility->onRead = [&](const std::string& attribute) {
        EXPECT_FALSE(gate->signalled()) << "nothing is asked any more, not even " << attribute;
        if (attribute == "AXChildren") {
            searches = true;
            EXPECT_TRUE(WaitUntil([&] { return gate->signalled(); }));
        }
    };
    show({{"Firefox", 11}});
    watcher = create();
    EXPECT_TRUE(WaitUntil([&] { return searches.load(); }));
    watcher->stop();
    EXPECT_EQ(accessibility->observerCount(), 0);
    EXPECT_TRUE(log.contains("Init context for -- Firefox"));
    EXPECT_FALSE(log.contains("took too long"));
    EXPECT_FALSE(log.contains("URL Element not found"));
}

TEST_F(BrowserURLWatcherTest, BrowsersArePreparedWithoutTheLockHeld) {
    accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    bool answered = false;
    accessibility->onPrepare = [&] {
        auto question = std::async(std::launch::async, [this] { return watcher->getURL("Firefox"); });
        answered = question.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    };
    gate->cycle();
    accessibility->onPrepare = nullptr;
    EXPECT_TRUE(answered);
    EXPECT_THAT(accessibility->preparedPids(), ElementsAre(ElementsAre(11), ElementsAre(11)));
}

TEST_F(BrowserURLWatcherTest, NobodyWaitsWhileABrowserIsAsked) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    start();
    std::atomic<int> answers{0};
    accessibility->onRead = [&](const std::string&) {
        auto question = std::async(std::launch::async, [this] { return watcher->getURL("Safari"); });
        answers += question.wait_for(std::chrono::seconds(20)) == std::future_status::ready ? 1 : 0;
    };
    accessibility->notify(browser.field, kChanged);
    EXPECT_EQ(answers, 1) << "of the text";
    accessibility->notify(browser.application, kWindowChanged);
    EXPECT_GT(answers, 3) << "of the window, its tree and the text";
    accessibility->onRead = nullptr;
}

TEST_F(BrowserURLWatcherTest, AChangeThatComesWhileAContextIsSetUpIsNotLost) {
    const auto browser = accessibility->addBrowser(11, "before");
    show({{"Firefox", 11}});
    bool isTold = false;
    accessibility->onRead = [&](const std::string& attribute) {
        // The text is read when both observers are there.
        if (attribute == "AXValue" && !std::exchange(isTold, true)) {
            browser.field->set("AXValue", "after");
            const auto later = browser.field;
            EXPECT_EQ(accessibility->notify(later, kChanged), 1);
            browser.field->set("AXValue", "before");
        } else if (attribute == "AXValue") {
            browser.field->set("AXValue", "after");
        }
    };
    start();
    accessibility->onRead = nullptr;
    EXPECT_EQ(watcher->getURL("Firefox"), "after");
}

// Nobody can be held up between the end of setting up and the reading of what came meanwhile, so it is tried
// often: the later change is told at that end, which comes a little later each time, and takes longer because
// somebody waits for the lock.
TEST_F(BrowserURLWatcherTest, AChangeToldBeforeAContextIsSetUpDoesNotReplaceOneToldAfterIt) {
    constexpr int kBrowsers = 100;
    constexpr int kCycles = 20;
    constexpr int kLongestDelay = 300;
    struct Told {
        AXElementRef before, after;
        fake::ElementPtr field;
    };
    std::vector<Told> told;
    std::vector<std::string> names;
    std::vector<WindowInfo> all;
    for (int pid = 100; pid < 100 + kBrowsers; ++pid) {
        const auto before = std::make_shared<fake::Element>(pid);
        const auto after = std::make_shared<fake::Element>(pid);
        before->set("AXValue", "before");
        after->set("AXValue", "after");
        told.push_back({before, after, accessibility->addBrowser(pid, "at first").field});
        names.push_back("Browser " + std::to_string(pid));
        all.push_back({names.back(), pid});
    }
    start(names);

    const auto nth = [&](int i) -> const Told& { return told[static_cast<std::size_t>(i % kBrowsers)]; };
    std::atomic<int> isSetUp{0};
    std::atomic<int> served{0};
    std::atomic<int> asked{0};
    std::atomic<bool> isRead{false};
    std::atomic<bool> isNext{false};
    std::atomic<bool> run{true};
    accessibility->onRead = [&](const std::string& attribute) {
        if (attribute == "AXMainWindow") {
            EXPECT_TRUE(WaitUntil([&] { return served == isSetUp; }));
            isRead = false;
        } else if (attribute == "AXValue" && !isRead.exchange(true)) {
            const Told& one = nth(isSetUp);
            EXPECT_EQ(accessibility->notify(one.field, kChanged, one.before), 1);
            isNext = true;
        }
    };
    onNow = [&] {
        if (isNext.exchange(false)) {
            ++asked;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            const int delay = ++isSetUp % kLongestDelay;
            for (int i = 0; i < delay; ++i) {
                static_cast<void>(served.load());
            }
        }
    };
    auto asking = std::async(std::launch::async, [&] {
        for (int answered = 0; run;) {
            if (asked > answered) {
                answered = asked;
                static_cast<void>(watcher->getURL(names.front()));
            }
            std::this_thread::yield();
        }
    });
    auto later = std::async(std::launch::async, [&] {
        for (int i = 0; i < kBrowsers * kCycles; ++i) {
            // Yielding seldom, else it is hardly ever soon enough.
            for (int turns = 1; isSetUp <= i; ++turns) {
                if (!run) {
                    return;
                }
                if (turns % 1000 == 0) {
                    std::this_thread::yield();
                }
            }
            const Told& one = nth(i);
            EXPECT_EQ(accessibility->notify(one.field, kChanged, one.after), 1);
            served = i + 1;
        }
    });
    int wrong = 0;
    for (int i = 0; i < kCycles; ++i) {
        show(all);
        gate->cycle();
        EXPECT_TRUE(WaitUntil([&] { return served == isSetUp; }));
        for (const std::string& name : names) {
            wrong += watcher->getURL(name) != "after" ? 1 : 0;
        }
        show({});
        gate->cycle();
    }
    run = false;
    later.get();
    asking.get();
    accessibility->onRead = nullptr;
    onNow = nullptr;
    EXPECT_EQ(served, kBrowsers * kCycles);
    EXPECT_EQ(wrong, 0);
}

TEST_F(BrowserURLWatcherTest, AWindowThatChangesWhileAContextIsSetUpIsFollowed) {
    const auto browser = accessibility->addBrowser(11, "first");
    const auto other = accessibility->addBrowser(11, "second");
    accessibility->setApplication(11, browser.application);
    show({{"Firefox", 11}});
    bool isTold = false;
    accessibility->onRead = [&](const std::string& attribute) {
        if (attribute == "AXValue" && !std::exchange(isTold, true)) {
            browser.application->set("AXMainWindow", AXValue(AXElementRef(other.window)));
            EXPECT_EQ(accessibility->notify(browser.application, kWindowChanged), 1);
        }
    };
    start();
    accessibility->onRead = nullptr;
    EXPECT_EQ(watcher->getURL("Firefox"), "second");
    EXPECT_EQ(accessibility->observerCount(), 2);
}

TEST_F(BrowserURLWatcherTest, AWindowThatWasLeftWhileAContextIsSetUpIsNotHeardAnyMore) {
    const auto browser = accessibility->addBrowser(11, "first");
    const auto other = accessibility->addBrowser(11, "second");
    accessibility->setApplication(11, browser.application);
    show({{"Firefox", 11}});
    int reads = 0;
    accessibility->onRead = [&](const std::string& attribute) {
        if (attribute == "AXValue" && ++reads == 1) {
            browser.application->set("AXMainWindow", AXValue(AXElementRef(other.window)));
            EXPECT_EQ(accessibility->notify(browser.application, kWindowChanged), 1);
        } else if (attribute == "AXValue" && reads == 2) {
            EXPECT_EQ(accessibility->notify(browser.field, kChanged), 0);
        }
    };
    start();
    accessibility->onRead = nullptr;
    EXPECT_EQ(reads, 2);
    EXPECT_EQ(watcher->getURL("Firefox"), "second");
}

TEST_F(BrowserURLWatcherTest, AWindowThatChangesInEachAttemptIsFollowedInTheNextCycle) {
    const auto browser = accessibility->addBrowser(11, "window 0");
    std::vector<fake::Accessibility::Browser> others;
    for (const char* const url : {"window 1", "window 2", "window 3"}) {
        others.push_back(accessibility->addBrowser(11, url));
    }
    accessibility->setApplication(11, browser.application);
    show({{"Firefox", 11}});
    std::size_t changes = 0;
    accessibility->onRead = [&](const std::string& attribute) {
        if (attribute == "AXValue" && changes < others.size()) {
            browser.application->set("AXMainWindow", AXValue(AXElementRef(others[changes++].window)));
            EXPECT_EQ(accessibility->notify(browser.application, kWindowChanged), 1);
        }
    };
    start();
    EXPECT_EQ(changes, others.size());
    EXPECT_EQ(watcher->getURL("Firefox"), "") << "what is known is of a window that was left";
    EXPECT_EQ(accessibility->observerCount(), 0);
    EXPECT_FALSE(log.contains("Found URL element for -- Firefox"));
    EXPECT_THAT(log.linesWith("The main window of Firefox changed in each attempt to set it up"),
                ElementsAre(StartsWith("[DEBUG]")));
    gate->cycle();
    accessibility->onRead = nullptr;
    EXPECT_EQ(watcher->getURL("Firefox"), "window 3");
    EXPECT_EQ(accessibility->observerCount(), 2);
}

TEST_F(BrowserURLWatcherTest, AReadingThatWasBegunEarlierDoesNotReplaceALaterOne) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    browser.field->set("AXValue", "slow");
    bool isFirst = true;
    const auto slow = std::make_shared<fake::Element>(11);
    slow->set("AXValue", "slow");
    accessibility->onRead = [&](const std::string&) {
        if (std::exchange(isFirst, false)) {
            browser.field->set("AXValue", "fast");
            EXPECT_EQ(accessibility->notify(browser.field, kChanged), 1);
        }
    };
    accessibility->notify(browser.field, kChanged, slow);
    accessibility->onRead = nullptr;
    EXPECT_EQ(watcher->getURL("Firefox"), "fast");
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"fast", "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, AReadingOfTheWindowBeforeIsNotSentAfterTheOneOfTheNewWindow) {
    const auto browser = accessibility->addBrowser(11, "before");
    show({{"Firefox", 11}});
    startWithClient();
    const auto other = accessibility->addBrowser(11, "new");
    accessibility->setApplication(11, browser.application);
    bool isTold = false;
    accessibility->onRead = [&](const std::string&) {
        if (!std::exchange(isTold, true)) {
            browser.application->set("AXMainWindow", AXValue(AXElementRef(other.window)));
            EXPECT_EQ(accessibility->notify(browser.application, kWindowChanged), 1);
        }
    };
    EXPECT_EQ(accessibility->notify(browser.field, kChanged), 1);
    accessibility->onRead = nullptr;
    EXPECT_EQ(watcher->getURL("Firefox"), "new");
    EXPECT_THAT(daemon.reports.all(), ElementsAre(SentURL{"new", "Firefox", 11}));
}

TEST_F(BrowserURLWatcherTest, NotificationsQuestionsAndPollingMayMeet) {
    const auto browser = accessibility->addBrowser(11, "a");
    show({{"Firefox", 11}});
    startWithClient();
    std::atomic<bool> run{true};
    auto asking = std::async(std::launch::async, [&] {
        while (run) {
            const std::string url = watcher->getURL("Firefox");
            EXPECT_TRUE(url.empty() || url == "a");
        }
    });
    auto polling = std::async(std::launch::async, [&] {
        for (int i = 0; i < 200; ++i) {
            show(i % 3 == 0 ? std::vector<WindowInfo>{} : std::vector<WindowInfo>{{"Firefox", 11}});
            gate->cycle();
        }
    });
    for (int i = 0; i < 200; ++i) {
        accessibility->notify(browser.field, kChanged);
        accessibility->notify(browser.application, kWindowChanged);
    }
    polling.get();
    run = false;
    asking.get();
    for (const SentURL& sent : daemon.reports.all()) {
        EXPECT_EQ(sent, (SentURL{"a", "Firefox", 11}));
    }
}

TEST(RequestAccesibilityPermissionTest, LogsTheAnswerAndAsksOnce) {
    fake::LogCapture log;
    fake::Accessibility accessibility;
    useragent::RequestAccesibilityPermission(accessibility);
    EXPECT_TRUE(log.contains("[DEBUG]"));
    EXPECT_TRUE(log.contains("AXIsProcessTrustedWithOptions return true"));
    accessibility.trusted = false;
    useragent::RequestAccesibilityPermission(accessibility);
    EXPECT_THAT(
        log.linesWith("[ERROR]"),
        ElementsAre(testing::EndsWith("AXIsProcessTrustedWithOptions return false, UserAgent not trusted")));
    EXPECT_EQ(accessibility.prompts, 2);
}

}  // namespace
