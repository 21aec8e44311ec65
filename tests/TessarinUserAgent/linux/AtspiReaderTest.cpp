#include <QDBusVariant>
#include <memory>

#include "AtspiFixture.h"
#include "AtspiTypes.h"
#include "useragent/Deadlines.h"
#include "useragent/FindURLElement.h"
#include "useragent/SearchReader.h"

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;

namespace {

// With applications that select children themselves, and with others.
class AtspiReaderTest : public AtspiFixture, public testing::WithParamInterface<bool> {
 protected:
    AtspiReaderTest() {
        application.setSelects(GetParam());
        window = application.addWindow("Page - Browser", "example.org/start");
        desktop.registerApplication(application.busName());
    }

    std::vector<std::string> namesOfChildren(const AXElementRef& element) {
        std::vector<std::string> names;
        for (const AXElementRef& child : children(element).value_or(std::vector<AXElementRef>())) {
            names.push_back(text(child, "AXDescription").value_or("?"));
        }
        return names;
    }

    AXElementRef frame() { return object(application.busName(), window.frame); }

    fake::AtspiNode named(const std::string& name, std::uint64_t states = fake::kShowing) {
        fake::AtspiNode node;
        node.name = name;
        node.states = states;
        return node;
    }

    fake::AtspiApplication application{desktop.accessibilityBus.address()};
    fake::AtspiApplication::Window window;
};

TEST_P(AtspiReaderTest, FindsAndReadsTheAddressField) {
    const AXElementRef field = addressField();
    ASSERT_TRUE(field);
    EXPECT_EQ(text(field, "AXRole"), "AXTextField");
    EXPECT_EQ(text(field, "AXDescription"), "Address and search bar");
    EXPECT_EQ(text(field, "AXValue"), "example.org/start");
    std::int32_t pid = 0;
    EXPECT_EQ(accessibility->getPid(field, pid), AXError::success);
    EXPECT_EQ(pid, getpid());
}

TEST_P(AtspiReaderTest, GivesTheRolesOfChildrenWithoutAskingAgain) {
    const auto found = children(frame());
    ASSERT_TRUE(found);
    ASSERT_EQ(found->size(), 1U);
    const int before = application.calls();
    EXPECT_EQ(text(found->front(), "AXRole"), "AXToolbar");
    EXPECT_EQ(application.calls(), before);
}

TEST_P(AtspiReaderTest, ReadsTheRoleOfAnElementThatDoesNotCarryIt) {
    EXPECT_EQ(text(accessibility->createApplication(getpid()), "AXRole"), "AXApplication");
}

TEST_P(AtspiReaderTest, KeepsTheShowingChildrenInTheirOrder) {
    application.add(window.frame, named("second"));
    application.add(window.frame, named("closed menu", 0));
    application.add(window.frame, named("third"));
    EXPECT_EQ(namesOfChildren(frame()), (std::vector<std::string>{"", "second", "third"}));
}

TEST_P(AtspiReaderTest, LeavesOutChildrenThatDoNotExist) {
    application.change(window.frame, [](fake::AtspiNode& frame) {
        frame.children.insert(frame.children.begin(), {"/org/a11y/atspi/accessible/999",
                                                       "/org/a11y/atspi/null", ":1.4711 /org/a11y/nobody"});
    });
    EXPECT_EQ(namesOfChildren(frame()), std::vector<std::string>{""});
    EXPECT_TRUE(addressField());
}

TEST_P(AtspiReaderTest, DoesNotBelieveTheCountOfChildren) {
    // Whatever an application says about their number, only the list counts.
    for (const int claim : {-1, 1'000'000}) {
        for (const std::string& path : {std::string(fake::AtspiApplication::kRoot), window.frame}) {
            application.change(path, [&](fake::AtspiNode& node) { node.childCount = claim; });
        }
        EXPECT_EQ(namesOfChildren(frame()).size(), 1U);
        EXPECT_EQ(text(addressField(), "AXValue"), "example.org/start");
        EXPECT_EQ(application.callsOf("GetChildAtIndex"), 0);
    }
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.children.clear(); });
    EXPECT_EQ(namesOfChildren(frame()).size(), 0U);
    EXPECT_EQ(error, AXError::success);
}

TEST_P(AtspiReaderTest, SurvivesMoreChildrenThanItAskedFor) {
    for (int i = 0; i < 10'000; ++i) {
        application.add(window.frame, {});
    }
    application.setHeedsLimit(false);
    EXPECT_FALSE(children(frame()));
    EXPECT_EQ(error, AXError::cannotComplete);
    // The same as the children of a child, which come along with the child.
    const std::string outer = application.add(fake::AtspiApplication::kRoot, named("outer"));
    application.change(outer, [&](fake::AtspiNode& node) {
        node.role = 23;
        node.states |= fake::kActive;
        node.children = {window.frame};
    });
    const auto inner = children(object(application.busName(), outer));
    ASSERT_TRUE(inner);
    ASSERT_EQ(inner->size(), 1U);
    EXPECT_EQ(text(inner->front(), "AXDescription"), "Page - Browser");
    EXPECT_FALSE(children(inner->front()));
    EXPECT_EQ(error, AXError::cannotComplete);
}

TEST_P(AtspiReaderTest, EndsTheSearchInATreeThatContainsItself) {
    application.change(window.frame, [&](fake::AtspiNode& frame) { frame.children = {window.frame}; });
    EXPECT_FALSE(addressField());
    // A second self makes a maze of a million ways; the watcher's searches have a time limit for such.
    application.change(window.frame, [&](fake::AtspiNode& frame) { frame.children.push_back(window.frame); });
    const auto now = [] { return std::chrono::steady_clock::now(); };
    useragent::SearchReader search(*accessibility, now, useragent::kURLFieldSearchDeadline);
    EXPECT_FALSE(useragent::FindURLElement(search, frame(), 0));
    EXPECT_TRUE(search.expired());
}

TEST_P(AtspiReaderTest, ReadsAValueOfAMegabyteWhole) {
    const std::string longText(1'000'000, 'x');
    application.change(window.field, [&](fake::AtspiNode& field) { field.text = longText + "\xC3\xA4"; });
    const auto value = text(addressField(), "AXValue");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->size(), longText.size() + 2);
    EXPECT_TRUE(value->ends_with("x\xC3\xA4"));
}

TEST_P(AtspiReaderTest, ReadsAnEmptyValueAsSuccess) {
    application.change(window.field, [&](fake::AtspiNode& field) { field.text = ""; });
    EXPECT_EQ(text(addressField(), "AXValue"), "");
}

TEST_P(AtspiReaderTest, GivesUpInTimeOnAHundredThousandChildren) {
    for (int i = 0; i < 100'000; ++i) {
        application.add(window.frame, {});
    }
    EXPECT_FALSE(children(frame()));
    EXPECT_EQ(error, AXError::cannotComplete);
    application.change(window.frame, [](fake::AtspiNode& shrunk) { shrunk.children.resize(1); });
    EXPECT_TRUE(addressField());
}

TEST_P(AtspiReaderTest, AsksNoneOfAHundredThousandWindows) {
    for (int i = 0; i < 100'000; ++i) {
        application.add(fake::AtspiApplication::kRoot, {});
    }
    EXPECT_FALSE(mainWindow());
    EXPECT_EQ(error, AXError::cannotComplete);
    EXPECT_EQ(application.callsOf("GetState"), 0);
    application.change(fake::AtspiApplication::kRoot, [](fake::AtspiNode& root) { root.children.resize(1); });
    EXPECT_TRUE(addressField());
}

TEST_P(AtspiReaderTest, SurvivesRepliesOfAnyOtherShape) {
    const AXElementRef tree = frame();
    const AXElementRef field = addressField();
    const std::vector<QVariantList> shapes{{},
                                           {-1},
                                           {QStringLiteral("text")},
                                           {true, 7U},
                                           {QStringList{QStringLiteral("a")}},
                                           {QVariant::fromValue(QDBusVariant(QByteArray("bytes")))},
                                           {QVariant::fromValue(QDBusVariant(QVariantMap()))},
                                           {QVariant::fromValue(AtspiAttributes())}};
    for (const char* const member :
         {"GetChildren", "GetState", "GetRole", "GetText", "GetAttributes", "Get"}) {
        for (const QVariantList& shape : shapes) {
            application.overrideMethod(member, [shape](const QDBusMessage& call) {
                return std::make_unique<QDBusMessage>(call.createReply(shape));
            });
            children(tree);
            mainWindow();
            for (const char* const attribute : {"AXRole", "AXDescription", "AXIdentifier", "AXDOMIdentifier",
                                                "AXPlaceholderValue", "AXValue"}) {
                text(tree, attribute);
                text(field, attribute);
            }
        }
        application.overrideMethod(
            member, [](const QDBusMessage&) -> std::unique_ptr<QDBusMessage> { return nullptr; });
        application.overrideMethod(member, [](const QDBusMessage& call) {
            return std::make_unique<QDBusMessage>(
                call.createErrorReply(QStringLiteral("a.b"), QStringLiteral("c")));
        });
        children(tree);
    }
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_EQ(error, AXError::failure);
}

TEST_P(AtspiReaderTest, NamesTheReasonOfAFailedRead) {
    const AXElementRef field = addressField();
    EXPECT_FALSE(text(field, "AXUnheardOf"));
    EXPECT_EQ(error, AXError::attributeUnsupported);
    EXPECT_FALSE(text(field, "AXMainWindow"));
    EXPECT_EQ(error, AXError::attributeUnsupported);
    EXPECT_FALSE(text(field, "AXIdentifier"));
    EXPECT_EQ(error, AXError::noValue);
    EXPECT_FALSE(text(field, "AXDOMIdentifier"));
    EXPECT_EQ(error, AXError::noValue);
    application.overrideMethod("GetText", [](const QDBusMessage& call) {
        return std::make_unique<QDBusMessage>(call.createErrorReply(QDBusError::UnknownMethod, QString()));
    });
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_EQ(error, AXError::attributeUnsupported);
    application.overrideMethod("GetText", [](const QDBusMessage& call) {
        return std::make_unique<QDBusMessage>(call.createErrorReply(QDBusError::UnknownObject, QString()));
    });
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_EQ(error, AXError::invalidUIElement);
}

TEST_P(AtspiReaderTest, ReadsIdentifiersAndPlaceholders) {
    application.change(window.field, [](fake::AtspiNode& field) {
        field.identifier = "WEB_BROWSER_ADDRESS_AND_SEARCH_FIELD";
        field.attributes = {{"id", "urlbar-input"}, {"placeholder", "Search"}};
    });
    const AXElementRef field = addressField();
    EXPECT_EQ(text(field, "AXIdentifier"), "WEB_BROWSER_ADDRESS_AND_SEARCH_FIELD");
    EXPECT_EQ(text(field, "AXDOMIdentifier"), "urlbar-input");
    EXPECT_EQ(text(field, "AXPlaceholderValue"), "Search");
    application.change(window.field, [](fake::AtspiNode& node) {
        node.attributes = {{"placeholder-text", "Find"}};
    });
    EXPECT_EQ(text(field, "AXPlaceholderValue"), "Find");
}

TEST_P(AtspiReaderTest, RefusesElementsOfOthers) {
    AXValue value;
    EXPECT_EQ(accessibility->copyAttributeValue(nullptr, "AXRole", value), AXError::illegalArgument);
    EXPECT_EQ(accessibility->copyAttributeValue(std::make_shared<useragent::AXElement>(), "AXRole", value),
              AXError::illegalArgument);
    std::int32_t pid = 0;
    EXPECT_EQ(accessibility->getPid(nullptr, pid), AXError::illegalArgument);
}

TEST_P(AtspiReaderTest, MakesNoApplicationOfAnImpossibleProcess) {
    EXPECT_FALSE(accessibility->createApplication(0));
    EXPECT_FALSE(accessibility->createApplication(-1));
}

TEST_P(AtspiReaderTest, CannotReadAProcessThatIsNotOnTheBus) {
    EXPECT_FALSE(mainWindow(1));
    EXPECT_EQ(error, AXError::cannotComplete);
}

TEST_P(AtspiReaderTest, TellsTheMainWindow) {
    const auto second = application.addWindow("Second - Browser", "example.org/second");
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Page - Browser");
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states |= fake::kActive; });
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Second - Browser");
    application.change(second.frame, [](fake::AtspiNode& frame) { frame.states = fake::kShowing; });
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Second - Browser") << "the last one stays the main one";
    application.change(fake::AtspiApplication::kRoot,
                       [](fake::AtspiNode& root) { root.children.pop_back(); });
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Page - Browser");
    application.change(fake::AtspiApplication::kRoot, [](fake::AtspiNode& root) { root.children.clear(); });
    EXPECT_FALSE(mainWindow());
    EXPECT_EQ(error, AXError::noValue);
}

TEST_P(AtspiReaderTest, FindsAnApplicationThatTheRegistryDoesNotKnow) {
    desktop.unregisterApplication(application.busName());
    EXPECT_TRUE(addressField());
}

TEST_P(AtspiReaderTest, ReadsNothingWhileAccessibilityIsOffAndWorksWhenItIsOn) {
    desktop.isEnabled = false;
    EXPECT_FALSE(accessibility->isProcessTrusted());
    EXPECT_FALSE(mainWindow());
    EXPECT_EQ(error, AXError::apiDisabled);
    EXPECT_EQ(log.count("Accessibility is switched off"), 1U);
    desktop.isEnabled = true;
    look({getpid()});
    EXPECT_TRUE(addressField());
    EXPECT_TRUE(accessibility->isProcessTrusted());
    desktop.isEnabled = false;
    look({getpid()});
    EXPECT_FALSE(mainWindow());
    EXPECT_EQ(log.count("Accessibility is switched off"), 2U) << "said again after it was on";
}

TEST_P(AtspiReaderTest, TellsOnceThatAWindowStaysWithoutContent) {
    const std::string children = "--force-renderer-accessibility";
    application.change(window.frame, [](fake::AtspiNode& frame) { frame.children.clear(); });
    EXPECT_FALSE(addressField());
    EXPECT_EQ(log.count(children), 0U) << "it may be just opening";
    EXPECT_FALSE(addressField());
    EXPECT_FALSE(addressField());
    EXPECT_EQ(log.count(children), 1U);
}

TEST_P(AtspiReaderTest, WakesABrowserThatBuildsItsTreeOnlyWhenAskedForAttributes) {
    bool isAwake = false;
    int wakings = 0;
    const auto ordinary = [](const QDBusMessage& call, const AtspiReferences& references) {
        return std::make_unique<QDBusMessage>(call.createReply(QVariant::fromValue(references)));
    };
    const AtspiReference null{QString::fromStdString(application.busName()),
                              QDBusObjectPath(QStringLiteral("/org/a11y/atspi/null"))};
    const AtspiReference field{null.busName, QDBusObjectPath(QString::fromStdString(window.field))};
    const AtspiReference frame{null.busName, QDBusObjectPath(QString::fromStdString(window.frame))};
    application.overrideMethod("GetAttributes", [&](const QDBusMessage& call) {
        isAwake = true;
        wakings += call.path() == frame.path.path() ? 1 : 0;
        return std::make_unique<QDBusMessage>(call.createReply(QVariant::fromValue(AtspiAttributes())));
    });
    application.overrideMethod("GetChildren", [&, ordinary](const QDBusMessage& call) {
        if (call.path() == QLatin1String(fake::AtspiApplication::kRoot)) {
            return ordinary(call, {frame});
        }
        return ordinary(call, call.path() == frame.path.path() ? AtspiReferences{isAwake ? field : null}
                                                               : AtspiReferences{});
    });
    if (GetParam()) {
        application.overrideMethod("GetMatches", [&, ordinary](const QDBusMessage& call) {
            const bool isOfFrame = call.path() == frame.path.path();
            return ordinary(call, isAwake && isOfFrame ? AtspiReferences{field} : AtspiReferences{});
        });
    }
    EXPECT_EQ(text(addressField(), "AXValue"), "example.org/start");
    EXPECT_TRUE(addressField());
    EXPECT_EQ(wakings, 1) << "who is awake is not disturbed";
    EXPECT_EQ(log.count("cannot be read"), 0U);
}

TEST_P(AtspiReaderTest, TellsOnceThatAProcessStaysAwayFromTheBus) {
    const std::int32_t stranger = getppid();
    for (int cycle = 0; cycle < 9; ++cycle) {
        look({getpid(), stranger});
    }
    EXPECT_EQ(log.count("is not on the accessibility bus"), 0U) << "it may be just starting";
    for (int cycle = 0; cycle < 11; ++cycle) {
        look({getpid(), stranger});
    }
    EXPECT_EQ(log.linesWith("is not on the accessibility bus").size(), 1U);
    EXPECT_NE(log.text().find("process id " + std::to_string(stranger) + " is not"), std::string::npos);
}

TEST_P(AtspiReaderTest, TellsItAgainOfAProcessThatGotTheIdOfOneThatHasEnded) {
    const std::int32_t stranger = getppid();
    for (int life = 1; life <= 2; ++life) {
        for (int cycle = 0; cycle < 10; ++cycle) {
            look({stranger});
        }
        look({});
        EXPECT_EQ(log.linesWith("is not on the accessibility bus").size(), life);
    }
}

TEST_P(AtspiReaderTest, SearchesWithFewRoundTrips) {
    for (int i = 0; i < 20; ++i) {
        application.add(window.frame, named("button"));
        application.add(window.frame, named("closed menu", 0));
    }
    ASSERT_TRUE(addressField());
    if (GetParam()) {
        // The showing children of the window, of each of those together, and of the toolbar's only one.
        EXPECT_EQ(application.callsOf("GetMatches"), 1 + 21 + 1);
        EXPECT_EQ(application.callsOf("GetState"), 1 + 1) << "of the window, and once of the field";
    } else {
        // The windows, what the chosen one holds, and the levels down to the field.
        EXPECT_EQ(application.callsOf("GetChildren"), 1 + 1 + 2);
        EXPECT_EQ(application.callsOf("GetMatches"), 1) << "who cannot select is not asked again";
        EXPECT_EQ(application.callsOf("GetState"), 1 + 41 + 1 + 1);
    }
}

INSTANTIATE_TEST_SUITE_P(, AtspiReaderTest, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Selecting" : "OneByOne"; });

}  // namespace
