#include <memory>

#include "AtspiFixture.h"

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXObserver;
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
        return observe(addressField(), kValueChangedNotification, seen.callback());
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
        const auto second = application.addWindow("Settled", "");
        Notifications last;
        const auto observer = observe(accessibility->createApplication(getpid()),
                                      kMainWindowChangedNotification, last.callback());
        application.activate(second.frame, "Settled");
        EXPECT_TRUE(fake::WaitFor([&] { return !last.entries.empty(); }));
    }

    fake::AtspiApplication application{desktop.accessibilityBus.address()};
    fake::AtspiApplication::Window window;
    Notifications seen;
};

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
    const int before = application.callsOf("GetText");
    const auto other = application.addWindow("Other - Browser", "other");
    application.edit(other.field, "page text");
    settle();
    EXPECT_EQ(application.callsOf("GetText"), before);
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiObserverTest, IsSilentBeforeAndAfterItsTimeOnTheMainLoop) {
    std::unique_ptr<AXObserver> observer;
    ASSERT_EQ(accessibility->createObserver(getpid(), seen.callback(), observer), AXError::success);
    ASSERT_EQ(observer->addNotification(addressField(), kValueChangedNotification), AXError::success);
    application.edit(window.field, "before");
    settle();
    EXPECT_TRUE(seen.entries.empty());
    observer->addToMainRunLoop();
    application.edit(window.field, "during");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    observer->removeFromMainRunLoop();
    application.edit(window.field, "after");
    settle();
    EXPECT_EQ(texts(), std::vector<std::string>{"during"});
}

TEST_F(AtspiObserverTest, TellsWhatTwoSubscriptionsReadInTheOrderOfTheAnswers) {
    const auto field = observeField();
    const auto windows = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    for (std::size_t round = 1; round <= 20; ++round) {
        const bool isSecond = round % 2 == 1;
        application.edit(window.field, std::to_string(round));
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
    observer =
        observe(addressField(), kValueChangedNotification, [&](const AXElementRef&, const std::string&) {
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
        return std::make_unique<QDBusMessage>(call.createErrorReply(QDBusError::UnknownObject, QString()));
    });
    application.edit(window.field, "a");
    ASSERT_TRUE(fake::WaitFor([&] { return application.callsOf("GetText") > before; }));
    settle();
    EXPECT_TRUE(seen.entries.empty());
    application.overrideMethod("GetText", [](const QDBusMessage& call) {
        return std::make_unique<QDBusMessage>(call.createReply(QStringLiteral("back")));
    });
    application.emitTextChanged(window.field, "insert");
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"back"});
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
    // Two observers of one change are told one after the other.
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(seen.entries.size(), 1U) << "only the window of the end of this test";
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
    // Two observers of one change are told one after the other.
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(seen.entries.size(), 1U) << "only the window of the end of this test";
}

TEST_F(AtspiObserverTest, FollowsTheLastOfQuickChanges) {
    const auto observer = observeWindows();
    const auto second = application.addWindow("Second - Browser", "second");
    application.activate(second.frame, "Second - Browser");
    application.activate(window.frame, "Page - Browser");
    settle();
    // Two observers of one change are told one after the other.
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    // Both quick ones, or none when the second came before the first was examined; and the one of the end.
    EXPECT_TRUE(seen.entries.size() == 1 || seen.entries.size() == 3) << seen.entries.size();
}

TEST_F(AtspiObserverTest, WantsFromTheApplicationOnlyWhatItNeeds) {
    auto observer = observeField();
    auto other = observeField();
    const std::string wanted = "object:text-changed " + application.busName();
    EXPECT_EQ(desktop.registeredEvents(), std::vector<std::string>{wanted});
    observer.reset();
    EXPECT_EQ(desktop.registeredEvents(), std::vector<std::string>{wanted});
    auto windows = observeWindows();
    EXPECT_EQ(desktop.registeredEvents(),
              (std::vector<std::string>{wanted, "window:activate " + application.busName()}));
    other.reset();
    windows.reset();
    EXPECT_TRUE(fake::WaitFor([&] { return desktop.registeredEvents().empty(); }));
}

TEST_F(AtspiObserverTest, WantsItFromANewRegistryToo) {
    const auto observer = observeField();
    accessibility->prepare({getpid()});
    desktop.restartRegistry();
    application.change(window.field, [](fake::AtspiNode& field) { field.text = "while nobody listened"; });
    accessibility->prepare({getpid()});
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(texts(), std::vector<std::string>{"while nobody listened"});
    EXPECT_TRUE(fake::WaitFor([&] { return desktop.registeredEvents().size() == 1; }));
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
