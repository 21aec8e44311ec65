#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FakeAccessibility.h"
#include "useragent/ObservedBrowsers.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;

constexpr std::int32_t kPid = 11;

class ObservedBrowsersTest : public testing::Test {
 protected:
    ObservedBrowsersTest() {
        for (const auto& [element, notification] : {std::pair{browser.application, "AXMainWindowChanged"},
                                                    std::pair{browser.field, "AXValueChanged"}}) {
            observed.observe(kPid, element, notification,
                             [this](const AXElementRef&, const std::string& name) { told.push_back(name); });
        }
        read(browser.application, "AXMainWindow");
        read(browser.field, "AXValue");
    }

    // As the watcher does.
    void read(const AXElementRef& element, const std::string& attribute) {
        AXValue value;
        if (accessibility.copyAttributeValue(element, attribute, value) == AXError::success) {
            observed.note(kPid, attribute, value);
        }
    }
    AXError look() { return observed.look(kPid, browser.application, accessibility); }

    fake::Accessibility accessibility;
    fake::Accessibility::Browser browser = accessibility.addBrowser(kPid, "a");
    useragent::ObservedBrowsers observed{
        [](const AXElementRef& left, const AXElementRef& right) { return left == right; }};
    std::vector<std::string> told;
};

TEST_F(ObservedBrowsersTest, NothingIsToldWhileAllIsAsItWasRead) {
    EXPECT_EQ(look(), AXError::success);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(ObservedBrowsersTest, AnotherTextIsToldUntilItIsRead) {
    browser.field->set("AXValue", "b");
    look();
    EXPECT_THAT(told, ElementsAre("AXValueChanged"));
    read(browser.field, "AXValue");
    look();
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(ObservedBrowsersTest, ATextThatCouldNotBeReadWhenItWasObservedIsTold) {
    observed.observe(kPid, browser.field, "AXValueChanged",
                     [this](const AXElementRef&, const std::string& name) { told.push_back(name); });
    look();
    EXPECT_THAT(told, ElementsAre("AXValueChanged"));
}

TEST_F(ObservedBrowsersTest, AnotherMainWindowAndAFieldThatIsGoneAreToldAsAChangedMainWindow) {
    browser.application->set("AXMainWindow", AXValue(AXElementRef(browser.field)));
    look();
    browser.application->set("AXMainWindow", AXValue(AXElementRef(browser.window)));
    browser.field->fail("AXValue", AXError::invalidUIElement);
    look();
    EXPECT_THAT(told, ElementsAre("AXMainWindowChanged", "AXMainWindowChanged"));
}

TEST_F(ObservedBrowsersTest, AProcessThatDoesNotAnswerIsAskedOnceAndNothingIsTold) {
    browser.application->fail("AXMainWindow", AXError::cannotComplete);
    browser.field->set("AXValue", "b");
    int reads = 0;
    accessibility.onRead = [&](const std::string&) { ++reads; };
    EXPECT_EQ(look(), AXError::cannotComplete);
    EXPECT_EQ(reads, 1);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(ObservedBrowsersTest, AFieldThatIsSlowForOnceIsNoOther) {
    browser.field->fail("AXValue", AXError::cannotComplete);
    EXPECT_EQ(look(), AXError::success);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(ObservedBrowsersTest, ABrowserThatIsNotThereAnyMoreIsForgotten) {
    browser.field->set("AXValue", "b");
    observed.keepOnly({kPid + 1});
    EXPECT_EQ(look(), AXError::success);
    EXPECT_THAT(told, IsEmpty());
}

}  // namespace
