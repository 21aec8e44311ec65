#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FakeAccessibility.h"
#include "support/FakeDispatch.h"
#include "support/LogCapture.h"
#include "useragent/FindURLElement.h"
#include "useragent/PreparedWindows.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;

constexpr std::int32_t kPreparedPid = 11;

class PreparedWindowsTest : public testing::Test {
 protected:
    PreparedWindowsTest() {
        browser.field->set("AXDescription", "Address and search bar");
        accessibility->onRead = [this](const std::string& attribute) {
            reads.push_back(attribute);
            isReadOnMainThread |= dispatch->currentQueue() == fake::Dispatch::Queue::main;
            now += cost;
        };
    }
    ~PreparedWindowsTest() override { dispatch->close(); }

    void announce(const std::string& name = "told") {
        windows->announce(kPreparedPid, browser.application, [this, name] {
            told.push_back(name);
            // As the watcher asks.
            AXValue value;
            if (read(browser.application, "AXMainWindow", value) != AXError::success) {
                return;
            }
            const AXElementRef field = useragent::FindURLElement(reader, std::get<AXElementRef>(value), 0);
            if (field && read(field, "AXValue", value) == AXError::success) {
                texts.emplace_back(std::get<useragent::AXStringRef>(value)->directUTF8());
            }
        });
    }

    AXError read(const AXElementRef& element, const std::string& attribute, AXValue& value) {
        return reader.copyAttributeValue(element, attribute, value);
    }

    // As a platform end reads: what is prepared first.
    struct Reader : useragent::AccessibilityReader {
        explicit Reader(PreparedWindowsTest& ofTest) : test(ofTest) {}
        AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                   AXValue& value) override {
            const auto prepared = test.windows->read(kPreparedPid, element, attribute, value);
            return prepared ? *prepared : test.accessibility->copyAttributeValue(element, attribute, value);
        }
        PreparedWindowsTest& test;
    };

    fake::LogCapture log;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    std::shared_ptr<fake::Accessibility> accessibility = std::make_shared<fake::Accessibility>();
    fake::Accessibility::Browser browser = accessibility->addBrowser(kPreparedPid, "a");
    std::chrono::steady_clock::time_point now;
    std::chrono::milliseconds cost{0};  // of one read
    std::shared_ptr<useragent::PreparedWindows> windows = std::make_shared<useragent::PreparedWindows>(
        dispatch, accessibility, [this] { return now; }, std::chrono::seconds(1));
    Reader reader{*this};
    std::vector<std::string> reads, told, texts;
    bool isReadOnMainThread = false;
};

TEST_F(PreparedWindowsTest, TheMainThreadReadsNothingOfTheApplicationWhenItIsTold) {
    announce();
    EXPECT_THAT(told, IsEmpty());
    dispatch->runUntilIdle();
    EXPECT_THAT(texts, ElementsAre("a"));
    EXPECT_FALSE(reads.empty());
    EXPECT_FALSE(isReadOnMainThread);
}

TEST_F(PreparedWindowsTest, WhatWasPreparedIsForgottenOnceItWasTold) {
    announce();
    dispatch->runUntilIdle();
    AXValue value;
    EXPECT_EQ(windows->read(kPreparedPid, browser.application, "AXMainWindow", value), std::nullopt);
}

TEST_F(PreparedWindowsTest, OnlyTheLastOfSeveralAnnouncementsIsTold) {
    announce("first");
    announce("second");
    dispatch->runUntilIdle();
    EXPECT_THAT(told, ElementsAre("second"));
    announce("third");
    dispatch->runUntilIdle();
    EXPECT_THAT(told, ElementsAre("second", "third"));
}

TEST_F(PreparedWindowsTest, OneThatComesDuringTheSearchTakesItsPlace) {
    accessibility->onRead = [this, isFirst = true](const std::string&) mutable {
        if (std::exchange(isFirst, false)) {
            browser.field->set("AXValue", "b");
            announce("second");
        }
    };
    announce("first");
    dispatch->runUntilIdle();
    EXPECT_THAT(told, ElementsAre("second"));
    EXPECT_THAT(texts, ElementsAre("b"));
}

TEST_F(PreparedWindowsTest, AWindowWithoutAFieldIsToldWithoutAnotherSearch) {
    browser.window->children({});
    announce();
    dispatch->runUntilIdle();
    EXPECT_THAT(told, ElementsAre("told"));
    EXPECT_THAT(texts, IsEmpty());
    EXPECT_FALSE(isReadOnMainThread);
}

TEST_F(PreparedWindowsTest, AnApplicationThatDoesNotAnswerIsToldAllTheSame) {
    browser.application->fail("AXMainWindow", AXError::cannotComplete);
    announce();
    dispatch->runUntilIdle();
    EXPECT_THAT(told, ElementsAre("told"));
    EXPECT_THAT(reads, ElementsAre("AXMainWindow"));
}

TEST_F(PreparedWindowsTest, ASearchEndsInTimeAndSaysSo) {
    cost = std::chrono::milliseconds(600);
    announce();
    dispatch->runUntilIdle();
    EXPECT_THAT(texts, IsEmpty());
    EXPECT_FALSE(isReadOnMainThread);
    EXPECT_EQ(log.count("The search for the URL field of the process 11 took too long and was ended"), 1U);
}

TEST_F(PreparedWindowsTest, OtherProcessesAreNotAnsweredFor) {
    const auto other = accessibility->addBrowser(kPreparedPid + 1, "other");
    std::optional<AXError> answer = AXError::failure;
    windows->announce(kPreparedPid, browser.application, [&] {
        AXValue value;
        answer = windows->read(kPreparedPid + 1, other.application, "AXMainWindow", value);
    });
    dispatch->runUntilIdle();
    EXPECT_EQ(answer, std::nullopt);
}

TEST_F(PreparedWindowsTest, OtherElementsAreNotAnsweredFor) {
    const auto isAnswered = [&](const AXElementRef& element, const char* attribute) {
        AXValue value;
        return windows->read(kPreparedPid, element, attribute, value).has_value();
    };
    int asked = 0;
    windows->announce(kPreparedPid, browser.application, [&] {
        ++asked;
        EXPECT_TRUE(isAnswered(browser.window, "AXChildren"));
        EXPECT_FALSE(isAnswered(browser.application, "AXChildren"));
        EXPECT_FALSE(isAnswered(browser.field, "AXChildren"));
        EXPECT_TRUE(isAnswered(browser.field, "AXValue"));
        EXPECT_FALSE(isAnswered(browser.window, "AXValue"));
        EXPECT_FALSE(isAnswered(browser.window, "AXRole"));
    });
    dispatch->runUntilIdle();
    EXPECT_EQ(asked, 1);
}

TEST_F(PreparedWindowsTest, NothingIsToldAfterItsEnd) {
    announce();
    windows.reset();
    dispatch->runUntilIdle();
    EXPECT_THAT(told, IsEmpty());
}

}  // namespace
