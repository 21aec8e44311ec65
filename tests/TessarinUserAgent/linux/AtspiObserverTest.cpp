#include <memory>

#include "AtspiFixture.h"
#include "accessibility/AtspiElement.h"
#include "accessibility/Listener.h"
#include "support/FakeDispatch.h"
#include "useragent/FindURLElement.h"

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXObserver;
using useragent::AXValue;
using useragent::kMainWindowChangedNotification;
using useragent::kValueChangedNotification;

namespace {

class AtspiObserverTest : public AtspiFixture {
 protected:
    AtspiObserverTest() {
        window = application.addWindow("Page - Browser", "start");
        desktop.registerApplication(application.busName());
    }

    std::unique_ptr<AXObserver> observe(const AXElementRef& element, const std::string& notification,
                                        useragent::AXObserverCallback callback) {
        std::unique_ptr<AXObserver> observer;
        EXPECT_EQ(accessibility->createObserver(getpid(), std::move(callback), observer), AXError::success);
        error = observer->addNotification(element, notification);
        EXPECT_EQ(error, AXError::success);
        observer->addToMainRunLoop();
        return observer;
    }
    std::unique_ptr<AXObserver> observeField() {
        auto observer = observe(foundField(), kValueChangedNotification, seen.callback());
        settle();  // what was begun when the field was found
        return observer;
    }
    std::unique_ptr<AXObserver> observeWindows() {
        mainWindow();
        return observe(accessibility->createApplication(getpid()), kMainWindowChangedNotification,
                       seen.callback());
    }

    std::vector<std::string> texts() {
        std::vector<std::string> result;
        for (const auto& entry : seen.entries) {
            result.push_back(text(entry.element, "AXValue").value_or("?"));
        }
        return result;
    }

    // Everything that was sent before is handled when this returns.
    void settle() {
        look({getpid()});
        bool isTold = false;
        dispatch->asyncMain([&] { isTold = true; });
        EXPECT_TRUE(fake::WaitFor([&] { return isTold; }));
    }

    fake::AtspiApplication application{desktop.accessibilityBus.address()};
    fake::AtspiApplication::Window window;
    Notifications seen;
};

TEST(Listener, WhatItMissedIsNotToldAfterWhatCameLater) {
    const auto queues = std::make_shared<fake::Dispatch>();
    std::vector<AXElementRef> told;
    const auto listener = std::make_shared<useragent::Listener>(
        queues, [&](const AXElementRef& element, const std::string&) { told.push_back(element); });
    const AXElementRef early = std::make_shared<useragent::AtspiElement>(1);
    const AXElementRef late = std::make_shared<useragent::AtspiElement>(2);
    listener->tell(early, kValueChangedNotification);
    queues->runUntilIdle();
    listener->tell(late, kValueChangedNotification);
    listener->setDelivering(true);
    queues->runUntilIdle();
    EXPECT_EQ(told, std::vector{late});
    queues->close();
}

TEST_F(AtspiObserverTest, BringsTheNewTextAlong) {
    const auto observer = observeField();
    application.edit(window.field, "example.org");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(seen.entries.front().name, kValueChangedNotification);
    const int before = application.calls();
    EXPECT_EQ(texts(), std::vector<std::string>{"example.org"});
    EXPECT_EQ(application.calls(), before) << "reading what came along asked the application";
    std::int32_t pid = 0;
    EXPECT_EQ(accessibility->getPid(seen.entries.front().element, pid), AXError::success);
    EXPECT_EQ(pid, getpid());
}

TEST_F(AtspiObserverTest, TellsEachEditOnce) {
    const auto observer = observeField();
    std::vector<std::string> expected;
    for (const char* const typed : {"e", "ex", "exa", "e", ""}) {
        application.edit(window.field, typed);
        expected.emplace_back(typed);
        ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() >= expected.size(); })) << typed;
    }
    settle();
    EXPECT_EQ(texts(), expected);
}

TEST_F(AtspiObserverTest, CoversSignalsBeforeTheAnswerWithOneNotification) {
    const auto observer = observeField();
    const int before = application.callsOf("GetText");
    application.hold();
    for (int i = 0; i < 5; ++i) {
        application.emitTextChanged(window.field, "insert");
    }
    ASSERT_TRUE(fake::WaitFor([&] { return application.callsOf("GetText") == before + 1; }));
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "final"; });
    application.release();
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    settle();
    EXPECT_EQ(texts(), std::vector<std::string>{"final"});
}

TEST_F(AtspiObserverTest, DoesNotTellATextThatStayedTheSame) {
    const auto observer = observeField();
    application.edit(window.field, "same");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    application.edit(window.field, "same");
    application.emitTextChanged(window.field, "insert");
    settle();
    EXPECT_EQ(texts(), std::vector<std::string>{"same"});
}

TEST_F(AtspiObserverTest, ListensToItsFieldOnly) {
    const auto observer = observeField();
    settle();
    int before = application.callsOf("GetText");
    settle();
    const int ofOneLook = application.callsOf("GetText") - before;
    const auto other = application.addWindow("Other - Browser", "other");
    settle();
    settle();  // what the look before has begun
    before = application.callsOf("GetText");
    application.edit(other.field, "page text");
    settle();
    EXPECT_EQ(application.callsOf("GetText") - before, ofOneLook);
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiObserverTest, IsSilentBeforeItsTimeOnTheMainLoopThenTellsWhatItMissedAndIsSilentAfterIt) {
    std::unique_ptr<AXObserver> observer;
    ASSERT_EQ(accessibility->createObserver(getpid(), seen.callback(), observer), AXError::success);
    ASSERT_EQ(observer->addNotification(foundField(), kValueChangedNotification), AXError::success);
    application.edit(window.field, "before");
    settle();
    EXPECT_TRUE(seen.entries.empty());
    observer->addToMainRunLoop();
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    application.edit(window.field, "during");
    ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 2; }));
    observer->removeFromMainRunLoop();
    application.edit(window.field, "after");
    settle();
    EXPECT_EQ(texts(), (std::vector<std::string>{"before", "during"}));
}

TEST_F(AtspiObserverTest, TellsWhatTwoObserversHearInTheOrderInWhichItHappened) {
    const auto windows = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    for (std::size_t round = 1; round <= 20; ++round) {
        const bool isSecond = round % 2 == 1;
        const auto field = observeField();
        application.edit(isSecond ? window.field : second.field, std::to_string(round));
        application.activate(isSecond ? second.frame : window.frame,
                             isSecond ? "Second - Browser" : "Page - Browser");
        ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() >= 2 * round; })) << round;
        EXPECT_EQ(seen.entries[2 * round - 2].name, kValueChangedNotification) << round;
        EXPECT_EQ(seen.entries[2 * round - 1].name, kMainWindowChangedNotification) << round;
    }
}

TEST_F(AtspiObserverTest, EndsWithItsObject) {
    auto observer = observeField();
    application.edit(window.field, "a");
    observer.reset();
    application.edit(window.field, "b");
    settle();
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiObserverTest, MayBeDestroyedInItsOwnCallback) {
    std::unique_ptr<AXObserver> observer;
    int calls = 0;
    observer = observe(foundField(), kValueChangedNotification, [&](const AXElementRef&, const std::string&) {
        ++calls;
        observer.reset();
    });
    application.edit(window.field, "a");
    ASSERT_TRUE(fake::WaitFor([&] { return calls > 0; }));
    application.edit(window.field, "b");
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(AtspiObserverTest, MayOutliveTheAccessibilityEnd) {
    const auto observer = observeField();
    accessibility.reset();
    application.edit(window.field, "a");
    QCoreApplication::processEvents();
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiObserverTest, GoesOnAfterAReadThatFailed) {
    const auto observer = observeField();
    const int before = application.callsOf("GetText");
    application.overrideMethod("GetText", [](const QDBusMessage& call) {
        return std::make_unique<QDBusMessage>(call.createErrorReply(QDBusError::UnknownMethod, QString()));
    });
    application.emitTextChanged(window.field, "insert");
    ASSERT_TRUE(fake::WaitFor([&] { return application.callsOf("GetText") > before; }));
    settle();
    EXPECT_TRUE(seen.entries.empty());
    EXPECT_LT(application.callsOf("GetText"), before + 20) << "it is not pressed";
    application.overrideMethod("GetText", [](const QDBusMessage& call) {
        return std::make_unique<QDBusMessage>(call.createReply(QStringLiteral("back")));
    });
    application.emitTextChanged(window.field, "insert");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"back"});
}

TEST_F(AtspiObserverTest, TellsAnInsertionBeforeItIsRead) {
    const auto observer = observeField();
    application.hold();
    application.emitTextChanged(window.field, "insert", ".example", 5);
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"start.example"});
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "start.example"; });
    application.release();
    settle();
    EXPECT_EQ(seen.entries.size(), 1U) << "the read found nothing else";
}

TEST_F(AtspiObserverTest, TellsNothingAfterADeletionAloneUntilItIsRead) {
    const auto observer = observeField();
    const int before = application.callsOf("GetText");
    application.hold();
    application.emitTextChanged(window.field, "delete", "start");
    ASSERT_TRUE(fake::WaitFor([&] { return application.callsOf("GetText") > before; }));
    QCoreApplication::processEvents();
    EXPECT_TRUE(seen.entries.empty());
    application.change(window.field, [](fake::AtspiNode& field) { field.text = ""; });
    application.release();
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{""});
}

TEST_F(AtspiObserverTest, AReadThatFindsAnotherTextThanTheChangesSaidIsAChange) {
    const auto observer = observeField();
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "the truth"; });
    application.emitTextChanged(window.field, "insert", "a lie, ", 0);
    ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 2; }));
    EXPECT_EQ(texts(), (std::vector<std::string>{"a lie, start", "the truth"}));
}

TEST_F(AtspiObserverTest, ALookTellsATextWhoseChangeWasNeverSaid) {
    const auto observer = observeField();
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "unsaid"; });
    settle();
    EXPECT_EQ(texts(), std::vector<std::string>{"unsaid"});
    settle();
    EXPECT_EQ(seen.entries.size(), 1U);
}

TEST_F(AtspiObserverTest, ALookTellsAnActiveWindowWhoseActivationWasNeverSaid) {
    const auto observer = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    settle();
    ASSERT_EQ(seen.entries.size(), 1U);
    EXPECT_EQ(text(foundField(), "AXValue"), "second");
}

TEST_F(AtspiObserverTest, ALookDoesNotAskTheOnlyWindowForTheTitleThatIsStillOnTheScreen) {
    const auto observer = observeWindows();
    useragent::WindowInfo browser;
    browser.ownerPid = getpid();
    browser.title = "Page";
    accessibility->prepare({browser});
    const int before = application.callsOf("Get");  // of a property
    accessibility->prepare({browser});
    EXPECT_EQ(application.callsOf("Get"), before);
    const auto second = application.addWindow("Second - Browser", "second");
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.states &= ~fake::kActive; });
    browser.title = "Second - Browser";
    accessibility->prepare({browser});
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(foundField(), "AXValue"), "second");
}

TEST_F(AtspiObserverTest, TheFirstLookLeavesABrowserToWhoeverReadsItFirst) {
    application.addWindow("Second - Browser", "second");
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.states &= ~fake::kActive; });
    useragent::WindowInfo browser;
    browser.ownerPid = getpid();
    browser.title = "Second - Browser";
    accessibility->prepare({browser});
    EXPECT_EQ(application.calls(), 0) << "an address that is read before waited for this browser";
    AXValue read;
    ASSERT_EQ(accessibility->copyAttributeValue(accessibility->createApplication(getpid()),
                                                useragent::kMainWindowAttribute, read),
              AXError::success);
    const auto* const mainWindow = std::get_if<AXElementRef>(&read);
    ASSERT_TRUE(mainWindow != nullptr);
    EXPECT_EQ(text(useragent::FindURLElement(*accessibility, *mainWindow, 0), "AXValue"), "second");
}

TEST_F(AtspiObserverTest, ALookTellsThatTheWindowIsGone) {
    const auto second = application.addWindow("Second - Browser", "second");
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    const auto observer = observeWindows();
    EXPECT_EQ(text(foundField(), "AXValue"), "second");
    application.change(fake::AtspiApplication::kRoot,
                       [](fake::AtspiNode& root) { root.children.pop_back(); });
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states = 1U << 6; });
    settle();
    ASSERT_EQ(seen.entries.size(), 1U);
    EXPECT_EQ(text(foundField(), "AXValue"), "start");
}

TEST_F(AtspiObserverTest, AWindowThatGoesWithoutAWordIsMissedOnScreenWithoutALook) {
    screen.show({"Second - Browser", "Page - Browser"});
    const auto second = application.addWindow("Second - Browser", "second");
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    const auto observer = observeWindows();
    settle();
    application.change(fake::AtspiApplication::kRoot,
                       [](fake::AtspiNode& root) { root.children.pop_back(); });
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states = 1U << 6; });
    screen.show({"Page - Browser"});
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(seen.entries.front().name, kMainWindowChangedNotification);
    EXPECT_EQ(text(foundField(), "AXValue"), "start");
}

TEST_F(AtspiObserverTest, WindowsOfOtherProgramsOnScreenAreNoReasonToAsk) {
    screen.show({"Page - Browser"});
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    const auto observer = observeWindows();
    settle();
    const int before = application.callsOf("GetChildren");
    const int asked = screen.timesAsked();
    screen.show({"Page - Browser"});
    ASSERT_TRUE(fake::WaitFor([&] { return screen.timesAsked() > asked; }));
    const auto second = application.addWindow("Second - Browser", "second");
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.states &= ~fake::kActive; });
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    screen.show({"Second - Browser", "Page - Browser"});
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(application.callsOf("GetChildren"), before + 1) << "only the windows of its own were a reason";
}

TEST_F(AtspiObserverTest, AnActivationWithoutATitleCountsWhenTheWindowHasOne) {
    const auto observer = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    application.activate(second.frame, "");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(foundField(), "AXValue"), "second");
}

TEST_F(AtspiObserverTest, AWindowWhoseTitleComesAfterItsActivationIsFound) {
    const auto second = application.addWindow("", "second");
    const auto observer = observeWindows();
    const int before = application.callsOf("GetRole");
    application.activate(second.frame, "");
    ASSERT_TRUE(fake::WaitFor([&] { return application.callsOf("GetRole") >= before + 2; }))
        << "the activation is examined while the window has no title";
    EXPECT_TRUE(seen.entries.empty());
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.name = "Second - Browser"; });
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(foundField(), "AXValue"), "second");
}

TEST_F(AtspiObserverTest, AFieldThatDiedIsSearchedForAgainWithoutALook) {
    const auto field = observeField();
    const auto windows = observeWindows();
    // As when a page fills the screen and leaves it: another object takes the field's place, and only the
    // window says that something has changed.
    application.change(window.field, [](fake::AtspiNode& node) {
        node.states = fake::kShowing | 1U << 6;
        node.text = "";
    });
    fake::AtspiNode fresh;
    fresh.role = 79;
    fresh.states = fake::kField;
    fresh.name = "Address and search bar";
    fresh.text = "after";
    application.add(window.frame, fresh);
    application.emitTextChanged(window.frame, "insert");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(seen.entries.front().name, kMainWindowChangedNotification);
    EXPECT_EQ(text(foundField(), "AXValue"), "after");
}

TEST_F(AtspiObserverTest, AFieldThatADialogHidesIsKept) {
    const auto windows = observeWindows();
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.children.clear(); });
    const auto second = application.addWindow("Second - Browser", "second");
    application.activate(second.frame, "Second - Browser");
    ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 1; }));
    application.activate(window.frame, "Page - Browser");
    ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 2; }));
    EXPECT_EQ(text(foundField(), "AXValue"), "start");
}

TEST_F(AtspiObserverTest, AFieldThatTellsNoChangesIsReadEachSecondWhileItsWindowIsActive) {
    const auto popUp = application.addWindow("Pop-up - Browser", "about:blank");
    application.change(popUp.field, [](fake::AtspiNode& field) {
        field.states = fake::kShowing | fake::kSingleLine;  // read-only
    });
    application.change(popUp.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    const auto observer = observeField();
    application.change(popUp.field, [](fake::AtspiNode& field) { field.text = "pop-up"; });
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"pop-up"});
}

TEST_F(AtspiObserverTest, ItIsReadAlsoWhenTheWindowInFrontDoesNotSayThatItIsActive) {
    screen.show({"Page - Browser"}, true);
    application.change(window.field, [](fake::AtspiNode& field) {
        field.states = fake::kShowing | fake::kSingleLine;  // read-only
    });
    const auto observer = observeField();
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "restored"; });
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"restored"});
}

TEST_F(AtspiObserverTest, AFieldThatTellsNoChangesIsReadWhenAWindowGetsAnotherTitle) {
    application.change(window.field, [](fake::AtspiNode& field) {
        field.states = fake::kShowing | fake::kSingleLine;  // read-only, in a window that is not active
    });
    const auto observer = observeField();
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "next page"; });
    screen.retitle();
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"next page"});
}

TEST_F(AtspiObserverTest, ATitleIsNoReasonToReadAFieldThatTellsItsChanges) {
    const auto observer = observeField();
    const int before = application.calls();
    screen.retitle();
    bool isOver = false;
    dispatch->after(std::chrono::milliseconds(100), cmn::QueuePriority::normal,
                    [&] { dispatch->asyncMain([&] { isOver = true; }); });
    ASSERT_TRUE(fake::WaitFor([&] { return isOver; }));
    EXPECT_EQ(application.calls(), before);
}

TEST_F(AtspiObserverTest, AFieldThatBecomesReadOnlyIsReadEachSecondFromThenOn) {
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    const auto field = observeField();
    const auto windows = observeWindows();
    const int before = application.callsOf("GetText");
    application.change(window.field,
                       [](fake::AtspiNode& node) { node.states = fake::kShowing | fake::kSingleLine; });
    application.emitStateChanged(window.field, "read-only", true);
    ASSERT_TRUE(fake::WaitFor([&] { return application.callsOf("GetText") >= before + 2; }))
        << "it is described, and read after that";
    application.change(window.field, [](fake::AtspiNode& node) { node.text = "unsaid"; });
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"unsaid"}) << "and it is still the same field";
}

TEST_F(AtspiObserverTest, APageThatFillsTheScreenStandsInForTheFieldThatItTookAway) {
    const auto windows = observeWindows();
    ASSERT_TRUE(foundField());
    fake::AtspiNode page;
    page.role = 95;
    page.attributes = {{"DocURL", "http://full.example/screen"}};
    const auto shown = application.add(window.frame, page);
    application.change(window.field, [](fake::AtspiNode& node) { node.states |= 1U << 6; });
    application.emitTextChanged(window.frame, "insert");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(foundField(), "AXValue"), "http://full.example/screen");
    // Another program covers the window.
    application.change(shown, [](fake::AtspiNode& node) { node.states &= ~fake::kShowing; });
    settle();
    EXPECT_EQ(text(foundField(), "AXValue"), "http://full.example/screen");
}

TEST_F(AtspiObserverTest, WhatAPageShowsIsNoAddressField) {
    fake::AtspiNode page;
    page.role = 95;
    fake::AtspiNode forged;
    forged.role = 79;
    forged.states = fake::kField;
    forged.name = "Address and search bar";
    forged.attributes = {{"id", "urlbar-input"}};
    forged.text = "http://evil.example";
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.children.clear(); });
    application.change(window.field, [](fake::AtspiNode& node) { node.states |= 1U << 6; });
    application.add(application.add(window.frame, page), forged);
    EXPECT_FALSE(foundField());
}

TEST_F(AtspiObserverTest, TellsThatAnotherWindowBecameTheMainOne) {
    const auto observer = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    application.activate(second.frame, "Second - Browser");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(seen.entries.front().name, kMainWindowChangedNotification);
    std::int32_t pid = 0;
    EXPECT_EQ(accessibility->getPid(seen.entries.front().element, pid), AXError::success);
    EXPECT_EQ(pid, getpid());
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Second - Browser");
    application.activate(window.frame, "Page - Browser");
    ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 2; }));
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Page - Browser");
}

TEST_F(AtspiObserverTest, TellsNothingWhenTheMainWindowComesToTheFrontAgain) {
    const auto observer = observeWindows();
    application.activate(window.frame, "Page - Browser");
    settle();
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiObserverTest, TakesNeitherMenusNorDialogsForMainWindows) {
    const auto observer = observeWindows();
    const auto menu = application.addWindow("", "");
    application.activate(menu.frame, "");
    fake::AtspiNode node;
    node.role = 16;
    const std::string dialog = application.add(fake::AtspiApplication::kRoot, node);
    application.activate(dialog, "Open File");
    settle();
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiObserverTest, OfQuickChangesOnlyTheLastCounts) {
    const auto observer = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    const auto third = application.addWindow("Third - Browser", "third");
    application.activate(second.frame, "Second - Browser");
    application.activate(third.frame, "Third - Browser");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(foundField(), "AXValue"), "third");
}

TEST_F(AtspiObserverTest, WantsFromTheApplicationWhatItNeedsOnceForAsLongAsItLives) {
    const auto other = application.addWindow("Other - Browser", "other");
    for (int i = 0; i < 1000; ++i) {
        const auto field = observeField();
        const auto windows = observeWindows();
        const auto& next = i % 2 == 0 ? other : window;
        application.change(window.frame, [](fake::AtspiNode& frame) { frame.states = fake::kShowing; });
        application.change(other.frame, [](fake::AtspiNode& frame) { frame.states = fake::kShowing; });
        application.change(next.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    }
    std::vector<std::string> wanted;
    for (const char* const event :
         {"object:text-changed ", "object:state-changed:editable ", "object:state-changed:read-only ",
          "window:activate ", "window:restore ", "window:minimize ", "window:destroy "}) {
        wanted.push_back(event + application.busName());
    }
    EXPECT_EQ(desktop.registeredEvents(), wanted);
}

TEST_F(AtspiObserverTest, WantsItFromANewRegistryToo) {
    const auto observer = observeField();
    look({getpid()});
    desktop.restartRegistry();
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "while nobody listened"; });
    look({getpid()});
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"while nobody listened"});
    EXPECT_TRUE(fake::WaitFor([&] { return desktop.registeredEvents().size() == 7; }));
}

TEST_F(AtspiObserverTest, RefusesWhatItCannotTell) {
    std::unique_ptr<AXObserver> observer;
    EXPECT_EQ(accessibility->createObserver(0, seen.callback(), observer), AXError::illegalArgument);
    ASSERT_EQ(accessibility->createObserver(getpid(), seen.callback(), observer), AXError::success);
    const AXElementRef field = addressField();
    const AXElementRef browser = accessibility->createApplication(getpid());
    EXPECT_EQ(observer->addNotification(field, "AXUnheardOf"), AXError::notificationUnsupported);
    EXPECT_EQ(observer->addNotification(field, kMainWindowChangedNotification),
              AXError::notificationUnsupported);
    EXPECT_EQ(observer->addNotification(browser, kValueChangedNotification),
              AXError::notificationUnsupported);
    EXPECT_EQ(observer->addNotification(nullptr, kValueChangedNotification), AXError::illegalArgument);
    EXPECT_EQ(observer->addNotification(accessibility->createApplication(1), kMainWindowChangedNotification),
              AXError::illegalArgument);
}

}  // namespace
