// The watcher on the accessibility end, on a private bus with browsers that do as the test says.

#include <atomic>
#include <chrono>
#include <future>
#include <iostream>
#include <thread>

#include "../PollingGate.h"
#include "AtspiBrowser.h"
#include "AtspiFixture.h"
#include "XPCCommon/ScriptedUserAgent.h"
#include "support/FakeWindowList.h"
#include "useragent/BrowserURLWatcher.h"
#include "windowlist/LinuxWindowList.h"

using fake::AtspiNode;
using useragent::WindowInfo;
using namespace std::chrono_literals;

namespace {

constexpr const char* kFirefox = "Firefox";
constexpr std::uint64_t kDefunct = 1U << 6;

// What the watcher and the accessibility end are told of the screen.
class Desk {
 public:
    useragent::Screen port() {
        return {[list = list_](std::int32_t pid) { return useragent::WindowsOf(pid, *list); },
                [polled = polled_] { return polled->isOutdated(); },
                [changed = changed_](useragent::ScreenEvents told) { *changed = std::move(told.changed); }};
    }
    void show(std::vector<WindowInfo> frontToBack) {
        list_->set(std::move(frontToBack));
        (*changed_)();
    }
    const std::shared_ptr<useragent::PolledWindowList>& polled() const { return polled_; }

 private:
    const std::shared_ptr<fake::WindowList> list_ = std::make_shared<fake::WindowList>();
    const std::shared_ptr<useragent::PolledWindowList> polled_ =
        std::make_shared<useragent::PolledWindowList>(list_);
    const std::shared_ptr<std::function<void()>> changed_ = std::make_shared<std::function<void()>>();
};

struct BeforeTheFixture {
    Desk desk;
    std::shared_ptr<PollingGate> pause = std::make_shared<PollingGate>();
};

class WatchedBrowserTest : private BeforeTheFixture, public AtspiFixture {
 protected:
    explicit WatchedBrowserTest(std::chrono::milliseconds callDeadline = 10s)
        : AtspiFixture(
              callDeadline, [pause = pause] { pause->signal(); }, desk.port()) {}

    void TearDown() override {
        if (watcher) {
            watcher->stop();
        }
        if (HasFailure()) {
            std::cout << log.text();
        }
    }

    void begin() {
        watcher = useragent::CreateBrowserURLWatcher(
            {kFirefox, "Google Chrome"},
            {accessibility, desk.polled(), pause, [] { return std::chrono::steady_clock::now(); }});
        watcher->setXPCClient(daemon.client());
        pause->awaitFirstCycle();
    }
    void show(std::vector<WindowInfo> frontToBack) { desk.show(std::move(frontToBack)); }

    // Nobody but the test and the accessibility end lets a cycle begin: five seconds never pass.
    bool awaitAnswer(const std::string& url) {
        return fake::WaitFor([&] { return watcher->getURL(kFirefox) == url; });
    }
    bool awaitReport(const std::string& url) {
        return fake::WaitFor([&] {
            const auto all = daemon.reports.all();
            return !all.empty() && all.back().url == url;
        });
    }

    ScriptedUserAgent daemon;
    std::shared_ptr<useragent::BrowserURLWatcher> watcher;
    using BeforeTheFixture::pause;
};

// A browser that is this process, in front with one window.
class OneBrowserTest : public WatchedBrowserTest {
 protected:
    explicit OneBrowserTest(std::chrono::milliseconds callDeadline = 10s) : WatchedBrowserTest(callDeadline) {
        desktop.registerApplication(application.busName());
        application.change(window.frame, [](AtspiNode& frame) { frame.states |= fake::kActive; });
        show({{kFirefox, getpid(), "Page - Browser"}});
    }

    // As when a page fills the screen.
    void killField() {
        application.change(window.field, [](AtspiNode& node) {
            node.states = fake::kShowing | kDefunct;
            node.text = "";
        });
    }

    // Another object takes the field's place, as when a window takes another shape; only the window says so.
    void replaceField(const std::string& text) {
        killField();
        AtspiNode fresh;
        fresh.role = 79;
        fresh.states = fake::kField;
        fresh.name = "Address and search bar";
        fresh.text = text;
        window.field = application.add(window.frame, fresh);
        application.emitTextChanged(window.frame, "insert");
    }

    fake::AtspiApplication application{desktop.accessibilityBus.address()};
    fake::AtspiApplication::Window window = application.addWindow("Page - Browser", "start");
};

class ImpatientTest : public OneBrowserTest {
 protected:
    ImpatientTest() : OneBrowserTest(kDeadline) {}

    // Of everything else the states are told, as those of a field that is dead.
    void keepStatesOfWindow() {
        application.overrideMethod("GetState", [this](const QDBusMessage& call) {
            const bool isOfWindow = call.path().toStdString() == window.frame;
            askedForStates += isOfWindow ? 1 : 0;
            return isOfWindow ? nullptr
                              : std::make_unique<QDBusMessage>(call.createReply(
                                    QVariant::fromValue(QList<uint>{fake::kShowing | kDefunct, 0})));
        });
    }

    std::atomic<int> askedForStates = 0;  // of the window
};

// Others cover it, and nothing in it is showing: which of its fields are in a page is asked from each
// upwards.
class CoveredWindowTest : public ImpatientTest {
 protected:
    CoveredWindowTest() {
        application.change(window.frame, [](AtspiNode& frame) { frame.children.clear(); });
        AtspiNode covered;
        covered.states = 0;
        panel = application.add(window.frame, covered);
        field.role = 79;
        field.states = fake::kField;
        field.name = "Address and search bar";
    }

    std::string panel;
    AtspiNode field;
};

TEST_F(OneBrowserTest, WhatIsTypedAfterAPageFilledTheScreenIsReported) {
    begin();
    AtspiNode page;
    page.role = 95;
    page.attributes = {{"DocURL", "http://video.example"}};
    killField();
    const std::string filling = application.add(window.frame, page);
    application.emitTextChanged(window.frame, "insert");
    ASSERT_TRUE(awaitReport("http://video.example"));
    application.change(filling, [](AtspiNode& node) { node.states |= kDefunct; });
    replaceField("start");
    ASSERT_TRUE(awaitReport("start"));
    application.edit(window.field, "typed");
    EXPECT_TRUE(awaitReport("typed"));
    EXPECT_EQ(watcher->getURL(kFirefox), "typed");
}

TEST_F(OneBrowserTest, APopUpsFieldIsReadThoughItCannotBeEditedAndTellsNothing) {
    begin();
    const auto popUp = application.addWindow("Pop-up - Browser", "pop-up/1");
    application.change(popUp.field,
                       [](AtspiNode& field) { field.states = fake::kShowing | fake::kSingleLine; });
    application.activate(popUp.frame, "Pop-up - Browser");
    show({{kFirefox, getpid(), "Pop-up - Browser"}, {kFirefox, getpid(), "Page - Browser"}});
    ASSERT_TRUE(awaitReport("pop-up/1"));
    application.change(popUp.field, [](AtspiNode& field) { field.text = "pop-up/2"; });
    EXPECT_TRUE(awaitReport("pop-up/2"));
}

TEST_F(ImpatientTest, AnAddressThatWasNotReadInTimeIsReportedWhenTheBrowserAnswers) {
    application.hold();
    begin();
    EXPECT_TRUE(daemon.reports.all().empty());
    application.release();
    EXPECT_TRUE(awaitReport("start"));
    EXPECT_TRUE(awaitAnswer("start")) << "the report is sent a moment before the set-up ends";
}

TEST_F(OneBrowserTest, AClosedWindowsAddressDoesNotStayWhenAnotherProgramComesToTheFront) {
    const auto second = application.addWindow("Second - Browser", "second");
    begin();
    application.activate(second.frame, "Second - Browser");
    ASSERT_TRUE(awaitReport("second"));
    application.change(fake::AtspiApplication::kRoot,
                       [&](AtspiNode& root) { std::erase(root.children, second.frame); });
    application.change(second.frame, [](AtspiNode& frame) { frame.states = kDefunct; });
    show({{"Editor", 1, "text"}, {kFirefox, getpid(), "Page - Browser"}});
    EXPECT_TRUE(awaitReport("start"));
}

TEST_F(OneBrowserTest, OfWindowsWithOneTitleTheOneUsedBeforeIsReadWhenTheLastIsClosed) {
    const auto second = application.addWindow("Page - Browser", "second");
    const auto third = application.addWindow("Third - Browser", "third");
    begin();
    application.activate(second.frame, "Page - Browser");
    ASSERT_TRUE(awaitReport("second"));
    application.activate(third.frame, "Third - Browser");
    ASSERT_TRUE(awaitReport("third"));
    application.change(fake::AtspiApplication::kRoot,
                       [&](AtspiNode& root) { std::erase(root.children, third.frame); });
    application.change(third.frame, [](AtspiNode& frame) { frame.states = kDefunct; });
    show({{"Editor", 1, "text"},
          {kFirefox, getpid(), "Page - Browser"},
          {kFirefox, getpid(), "Page - Browser"}});
    ASSERT_TRUE(awaitAnswer("second"));
    pause->cycle();
    EXPECT_EQ(watcher->getURL(kFirefox), "second");
}

TEST_F(OneBrowserTest, OfWindowsWithOneTitleThatWhichSaidThatItWasMinimisedIsNotRead) {
    const auto second = application.addWindow("Page - Browser", "second");
    begin();
    application.activate(second.frame, "Page - Browser");
    ASSERT_TRUE(awaitReport("second"));
    application.minimise(second.frame, "Page - Browser");
    show({{"Editor", 1, "text"}, {kFirefox, getpid(), "Page - Browser"}});
    EXPECT_TRUE(awaitReport("start"));
    pause->cycle();
    EXPECT_EQ(watcher->getURL(kFirefox), "start");
    application.activate(second.frame, "Page - Browser");
    show({{kFirefox, getpid(), "Page - Browser"}});
    EXPECT_TRUE(awaitAnswer("second"));
}

TEST_F(OneBrowserTest, AMinimisedWindowThatStillClaimsToBeActiveIsNotRead) {
    application.addWindow("Second - Browser", "second");
    begin();
    ASSERT_TRUE(awaitReport("start"));
    application.change(window.frame, [](AtspiNode& frame) { frame.states &= ~fake::kShowing; });
    show({{kFirefox, getpid(), "Second - Browser"}});
    EXPECT_TRUE(awaitReport("second"));
}

TEST_F(OneBrowserTest, AWindowWhoseTitleOnlyBeginsLikeTheFrontMostOnesIsNotTakenForIt) {
    const auto second = application.addWindow("Page - Browser Private", "second");
    begin();
    application.activate(second.frame, "Page - Browser Private");
    ASSERT_TRUE(awaitReport("second"));
    application.change(second.frame, [](AtspiNode& frame) { frame.states &= ~fake::kActive; });
    show({{"Editor", 1, "text"},
          {kFirefox, getpid(), "Page - Browser"},
          {kFirefox, getpid(), "Page - Browser Private"}});
    EXPECT_TRUE(awaitReport("start"));
    pause->cycle();
    EXPECT_EQ(watcher->getURL(kFirefox), "start");
}

TEST_F(OneBrowserTest, AClosedBrowserIsForgottenWithoutWaitingForTheNextCycle) {
    begin();
    ASSERT_TRUE(awaitAnswer("start"));
    show({{"Editor", 1, "text"}});
    EXPECT_TRUE(awaitAnswer(""));
}

TEST_F(OneBrowserTest, AnActivationCountsAlsoWhenItComesWithoutATitle) {
    const auto second = application.addWindow("Second - Browser", "second");
    begin();
    application.activate(second.frame, "");
    EXPECT_TRUE(awaitReport("second"));
}

TEST_F(OneBrowserTest, WithNobodyActiveTheFrontMostWindowIsRead) {
    application.addWindow("Second - Browser", "second");
    application.change(window.frame, [](AtspiNode& frame) { frame.states &= ~fake::kActive; });
    show({{"Editor", 1, "text"},
          {kFirefox, getpid(), "Second - Browser"},
          {kFirefox, getpid(), "Page - Browser"}});
    begin();
    EXPECT_TRUE(awaitReport("second"));
}

TEST_F(OneBrowserTest, AWindowWithoutAFieldHasNoAddressAndTheNextOneHasItsOwn) {
    const auto library = application.addWindow("Library", "");
    application.change(library.frame, [](AtspiNode& frame) { frame.children.clear(); });
    begin();
    ASSERT_TRUE(awaitAnswer("start"));
    application.activate(library.frame, "Library");
    show({{kFirefox, getpid(), "Library"}, {kFirefox, getpid(), "Page - Browser"}});
    ASSERT_TRUE(awaitAnswer(""));
    application.activate(window.frame, "Page - Browser");
    show({{kFirefox, getpid(), "Page - Browser"}, {kFirefox, getpid(), "Library"}});
    EXPECT_TRUE(awaitAnswer("start"));
}

TEST_F(OneBrowserTest, AWindowWhoseFieldComesLaterIsReadWhenItIsThere) {
    killField();
    begin();
    EXPECT_EQ(watcher->getURL(kFirefox), "");
    replaceField("there");
    EXPECT_TRUE(awaitReport("there"));
}

TEST_F(OneBrowserTest, ABrowserThatComesToTheBusAfterItsWindowIsReadThen) {
    desktop.unregisterApplication(application.busName());
    application.change(fake::AtspiApplication::kRoot, [](AtspiNode& root) { root.role = 0; });
    begin();
    EXPECT_EQ(watcher->getURL(kFirefox), "");
    desktop.registerApplication(application.busName());
    EXPECT_TRUE(awaitReport("start"));
}

TEST_F(OneBrowserTest, OfManyEditsAtOnceTheLastOneIsTheAnswer) {
    begin();
    for (int i = 0; i < 200; ++i) {
        application.edit(window.field, "edit " + std::to_string(i));
    }
    EXPECT_TRUE(awaitReport("edit 199"));
    EXPECT_EQ(watcher->getURL(kFirefox), "edit 199");
}

TEST_F(OneBrowserTest, WhatAPageWritesIntoAFieldOfItsOwnIsNeverReported) {
    AtspiNode page;
    page.role = 95;
    AtspiNode forged;
    forged.role = 79;
    forged.states = fake::kField;
    forged.name = "Address and search bar";
    forged.attributes = {{"id", "urlbar-input"}};
    forged.text = "http://bank.example";
    begin();
    const std::string field = application.add(application.add(window.frame, page), forged);
    killField();
    application.emitTextChanged(window.frame, "insert");
    ASSERT_TRUE(awaitAnswer(""));
    application.edit(field, "http://bank.example/again");
    pause->cycle();
    for (const SentURL& report : daemon.reports.all()) {
        EXPECT_EQ(report.url.find("bank"), std::string::npos);
    }
}

TEST_F(ImpatientTest, AFieldThatDiedIsSearchedForAlsoWhenTheBrowserAnsweredOnlyInPart) {
    begin();
    ASSERT_TRUE(awaitReport("start"));
    keepStatesOfWindow();
    killField();
    pause->cycle();
    ASSERT_TRUE(fake::WaitFor([&] { return askedForStates > 0; }));
    application.resetMethod("GetState");
    AtspiNode fresh;
    fresh.role = 79;
    fresh.states = fake::kField;
    fresh.name = "Address and search bar";
    fresh.text = "fresh";
    application.add(window.frame, fresh);
    pause->cycle();
    pause->cycle();
    EXPECT_TRUE(awaitReport("fresh"));
}

TEST_F(ImpatientTest, ASlowBrowserThatAnnouncesManyWindowsLeavesTheWorkersToOthers) {
    begin();
    keepStatesOfWindow();
    for (int i = 0; i < 50; ++i) {
        application.activate(window.frame, "Page - Browser");
        std::this_thread::sleep_for(40ms);
    }
    const auto begun = std::make_shared<std::promise<void>>();
    dispatch->async(cmn::QueuePriority::high, [begun] { begun->set_value(); });
    EXPECT_EQ(begun->get_future().wait_for(kDeadline), std::future_status::ready);
    EXPECT_GT(askedForStates, 0);
}

TEST_F(CoveredWindowTest, ItsFieldIsFoundAndNoneOfThePageInIt) {
    AtspiNode page;
    page.role = 95;
    page.states = 0;
    field.text = "http://bank.example";
    application.add(application.add(panel, page), field);
    EXPECT_FALSE(text(foundField(), "AXValue"));
    field.text = "its own";
    application.add(panel, field);
    look({getpid()});
    EXPECT_EQ(text(foundField(), "AXValue"), "its own");
}

TEST_F(CoveredWindowTest, ManyFieldsTakeNoMoreTimeThanOneSearch) {
    for (int i = 0; i < 8; ++i) {
        application.add(panel, field);
    }
    application.overrideMethod("GetRole", [=, this](const QDBusMessage& call) {
        const std::string path = call.path().toStdString();
        const uint role = path == window.frame ? 23 : 79;
        return path == panel ? nullptr : std::make_unique<QDBusMessage>(call.createReply(role));
    });
    EXPECT_LT(timeOf([&] { EXPECT_TRUE(mainWindow()); }), kOneWait);
}

TEST_F(ImpatientTest, ARegistryThatWasNotAskedForLackOfTimeIsNotBlamed) {
    desktop.unregisterApplication(application.busName());
    application.overrideMethod("GetRole", [](const QDBusMessage&) { return nullptr; });
    look({getpid()});
    EXPECT_EQ(application.callsOf("GetRole"), 1);
    EXPECT_EQ(log.count("The accessibility registry does not answer"), 0U);
}

TEST_F(OneBrowserTest, AThousandWindowSwitchesLeaveAsManyRegistrationsAsThereWere) {
    const auto second = application.addWindow("Second - Browser", "second");
    begin();
    application.activate(second.frame, "Second - Browser");
    ASSERT_TRUE(awaitAnswer("second"));
    const auto before = desktop.registeredEvents();
    for (int i = 0; i < 1000; ++i) {
        application.activate(window.frame, "Page - Browser");
        application.activate(second.frame, "Second - Browser");
        if (i % 100 == 0) {
            application.activate(window.frame, "Page - Browser");
            ASSERT_TRUE(awaitAnswer("start"));
            application.activate(second.frame, "Second - Browser");
            ASSERT_TRUE(awaitAnswer("second"));
        }
    }
    EXPECT_EQ(desktop.registeredEvents(), before);
}

TEST_F(ImpatientTest, AWindowSwitchOfABrowserThatHangsHoldsUpNeitherTheMainThreadNorAnAnswer) {
    const auto second = application.addWindow("Second - Browser", "second");
    begin();
    ASSERT_TRUE(awaitAnswer("start"));
    application.hold();
    application.activate(second.frame, "Second - Browser");
    pause->beginCycle();
    int answers = 0;
    for (const auto begun = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - begun < kOneWait; ++answers) {
        QCoreApplication::processEvents();
        EXPECT_EQ(watcher->getURL(kFirefox), "start");
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_GT(answers, 3 * (kOneWait / kDeadline)) << "nobody waited for the browser";
    application.release();
    pause->cycle();  // it may have been asked again too often by then
    EXPECT_TRUE(awaitReport("second"));
}

class TwoBrowsersTest : public WatchedBrowserTest {
 protected:
    TwoBrowsersTest() : WatchedBrowserTest(10s) {}

    WindowInfo of(const fake::Browser& browser) const { return {kFirefox, browser.pid(), "Page"}; }

    fake::Browser first{desktop, "first"};
    fake::Browser second{desktop, "second"};
};

TEST_F(TwoBrowsersTest, OfTwoProcessesTheOneThatComesToTheFrontIsReadWithoutWaitingForTheNextCycle) {
    show({of(first), of(second)});
    begin();
    ASSERT_TRUE(awaitReport("first"));
    show({of(second), of(first)});
    EXPECT_TRUE(awaitReport("second"));
    show({of(first), of(second)});
    EXPECT_TRUE(awaitReport("first"));
}

TEST_F(TwoBrowsersTest, TheOneThatWasInFrontStaysTheAnswerWhileAThirdProgramIs) {
    show({of(second), of(first)});
    begin();
    ASSERT_TRUE(awaitReport("second"));
    for (int i = 0; i < 5; ++i) {
        show({{"Editor", 1, "text"}, of(second), of(first)});
        pause->cycle();
        show({of(second), {"Editor", 1, "text"}, of(first)});
        pause->cycle();
        EXPECT_EQ(watcher->getURL(kFirefox), "second");
    }
    EXPECT_EQ(daemon.reports.all().size(), 1U);
}

TEST_F(TwoBrowsersTest, OneThatIsKilledGivesWayToTheOther) {
    show({of(second), of(first)});
    begin();
    ASSERT_TRUE(awaitReport("second"));
    second.kill();
    show({of(first)});
    EXPECT_TRUE(awaitReport("first"));
}

TEST_F(TwoBrowsersTest, WindowsThatChangePlacesWithinTheirProcessesCostNoCycle) {
    show({of(first), {"Editor", 1, "text"}});
    begin();
    ASSERT_TRUE(awaitReport("first"));
    pause->cycle();  // after which nothing is left to do early
    pause->cycle();
    const auto before = pause->pauses().size();
    for (int i = 0; i < 20; ++i) {
        show({of(first), {"Editor", 1, "text"}});
        show({{"Editor", 1, "text"}, of(first)});
    }
    pause->cycle();
    EXPECT_EQ(pause->pauses().size(), before + 1);
}

}  // namespace
