#include <gtest/gtest.h>

#include "support/FakeAccessibility.h"
#include "useragent/FindURLElement.h"
#include "useragent/SearchReader.h"

namespace {

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;
using useragent::FindURLElement;

class FindURLElementTest : public testing::Test {
 protected:
    static fake::ElementPtr element(const std::string& role, std::vector<AXValue> children = {}) {
        auto made = std::make_shared<fake::Element>(1);
        made->set("AXRole", role).children(std::move(children));
        return made;
    }
    static fake::ElementPtr textField(const std::string& description = "") {
        auto made = element("AXTextField");
        made->set("AXDescription", description);
        return made;
    }
    static AXValue child(const fake::ElementPtr& made) { return AXElementRef(made); }

    AXElementRef find(const fake::ElementPtr& root, std::uint32_t depth = 0) {
        return FindURLElement(accessibility, root, depth);
    }

    fake::Accessibility accessibility;
};

TEST_F(FindURLElementTest, MatchesADescriptionOfAddressAndSearchInAnyCase) {
    const auto field = textField("Address and search bar");
    const auto shouting = textField("SEARCH OR ENTER ADDRESS");
    EXPECT_EQ(find(element("AXWindow", {child(field)})), field);
    EXPECT_EQ(find(element("AXWindow", {child(shouting)})), shouting);
}

TEST_F(FindURLElementTest, ADescriptionWithOnlyOneOfTheWordsDoesNotMatch) {
    EXPECT_EQ(find(element("AXWindow", {child(textField("address")), child(textField("search"))})), nullptr);
}

TEST_F(FindURLElementTest, AFieldWhoseDescriptionDoesNotMatchMayStillMatchTheOtherRules) {
    const auto byIdentifier = textField("address");
    byIdentifier->set("AXIdentifier", "WEB_BROWSER_ADDRESS_AND_SEARCH_FIELD");
    EXPECT_EQ(find(element("AXWindow", {child(byIdentifier)})), byIdentifier);

    const auto byDomIdentifier = textField("address");
    byDomIdentifier->set("AXDOMIdentifier", "urlbar-input");
    EXPECT_EQ(find(element("AXWindow", {child(byDomIdentifier)})), byDomIdentifier);

    const auto byPlaceholder = textField("address");
    byPlaceholder->set("AXPlaceholderValue", "");
    EXPECT_EQ(find(element("AXWindow", {child(byPlaceholder)})), byPlaceholder);
}

TEST_F(FindURLElementTest, IdentifiersMustMatchExactly) {
    const auto field = textField();
    field->set("AXIdentifier", "web_browser_address_and_search_field")
        .set("AXDOMIdentifier", "urlbar-input-2");
    EXPECT_EQ(find(element("AXWindow", {child(field)})), nullptr);
}

TEST_F(FindURLElementTest, IdentifiersAreComparedHoweverTheyAreStored) {
    const auto field = textField();
    field->set("AXDOMIdentifier", fake::Text("urlbar-input", fake::String::Storage::convertible));
    EXPECT_EQ(find(element("AXWindow", {child(field)})), field);
}

TEST_F(FindURLElementTest, ADescriptionWithoutDirectPointerIsNotConvertedAndTheNextRulesApply) {
    const auto field = textField();
    field->set("AXDescription", fake::Text("Address and search bar", fake::String::Storage::convertible));
    const auto window = element("AXWindow", {child(field)});
    EXPECT_EQ(find(window), nullptr);
    field->set("AXPlaceholderValue", "x");
    EXPECT_EQ(find(window), field);
}

TEST_F(FindURLElementTest, AnyTextFieldWithAReadablePlaceholderIsTakenWhenItComesFirst) {
    const auto pageSearchBox = textField("Find on this page");
    pageSearchBox->set("AXPlaceholderValue", "type here");
    const auto addressField = textField("Address and search bar");
    EXPECT_EQ(find(element("AXWindow", {child(pageSearchBox), child(addressField)})), pageSearchBox);
    EXPECT_EQ(find(element("AXWindow", {child(addressField), child(pageSearchBox)})), addressField);
}

TEST_F(FindURLElementTest, ATextFieldWithoutReadableDescriptionIsNotTestedButDescendedInto) {
    const auto inner = textField("address and search");
    const auto outer = element("AXTextField", {child(inner)});
    outer->fail("AXDescription", AXError::noValue)
        .set("AXPlaceholderValue", "x")
        .set("AXDOMIdentifier", "urlbar-input");
    EXPECT_EQ(find(element("AXWindow", {child(outer)})), inner);
}

TEST_F(FindURLElementTest, ATextFieldThatMatchesNoRuleIsDescendedInto) {
    const auto inner = textField("address and search");
    const auto outer = textField("name");
    outer->children({child(inner)});
    EXPECT_EQ(find(element("AXWindow", {child(outer)})), inner);
}

TEST_F(FindURLElementTest, AnElementWithoutRoleIsNeitherTestedNorDescendedInto) {
    const auto nameless = textField("address and search");
    nameless->fail("AXRole", AXError::attributeUnsupported)
        .children({child(textField("address and search"))});
    EXPECT_EQ(find(element("AXWindow", {child(nameless)})), nullptr);
}

TEST_F(FindURLElementTest, TheRoleIsComparedExactly) {
    const auto field = textField("address and search");
    field->set("AXRole", "axtextfield");
    EXPECT_EQ(find(element("AXWindow", {child(field)})), nullptr);
    field->set("AXRole", "AXTextFieldArea");
    EXPECT_EQ(find(element("AXWindow", {child(field)})), nullptr);
}

TEST_F(FindURLElementTest, EntriesThatAreNoElementsAreSkippedAndCostNothing) {
    const auto field = textField("address and search");
    std::vector<AXValue> entries(40, fake::Text("not an element"));
    entries.push_back(AXElementRef());
    entries.push_back(child(field));
    EXPECT_EQ(find(element("AXWindow", entries)), field);
}

TEST_F(FindURLElementTest, UnreadableOrEmptyOrOddChildrenGiveNothing) {
    const auto unreadable = element("AXWindow");
    unreadable->fail("AXChildren", AXError::cannotComplete);
    EXPECT_EQ(find(unreadable), nullptr);
    EXPECT_EQ(find(element("AXWindow")), nullptr);
    const auto odd = element("AXWindow");
    odd->set("AXChildren", "text");
    EXPECT_EQ(find(odd), nullptr);
}

TEST_F(FindURLElementTest, DepthThirtyGivesNothingAtOnce) {
    const auto window = element("AXWindow", {child(textField("address and search"))});
    int reads = 0;
    accessibility.onRead = [&](const std::string&) { ++reads; };
    EXPECT_EQ(find(window, 30), nullptr);
    EXPECT_EQ(reads, 0);
    EXPECT_NE(find(window, 29), nullptr);
}

TEST_F(FindURLElementTest, AtDepthTwentyEightOnlyTheFirstChildDescendedIntoIsSearched) {
    const auto field = textField("address and search");
    const auto holder = element("AXGroup", {child(field)});
    EXPECT_EQ(find(element("AXWindow", {child(holder), child(element("AXGroup"))}), 28), field);
    EXPECT_EQ(find(element("AXWindow", {child(element("AXGroup")), child(holder)}), 28), nullptr);
}

TEST_F(FindURLElementTest, SiblingsShareTheBudget) {
    // The k-th child descended into is searched with depth plus k: the 29th still, the 30th no more.
    for (const int before : {28, 29}) {
        const auto field = textField("address and search");
        std::vector<AXValue> children;
        for (int i = 0; i < before; ++i) {
            children.push_back(child(element("AXGroup")));
        }
        children.push_back(child(element("AXGroup", {child(field)})));
        EXPECT_EQ(find(element("AXWindow", children)), before == 28 ? AXElementRef(field) : nullptr)
            << before;
    }
}

TEST_F(FindURLElementTest, AMatchNeedsNoBudgetAmongItsSiblings) {
    const auto field = textField("address and search");
    std::vector<AXValue> children;
    for (int i = 0; i < 1000; ++i) {
        children.push_back(child(element("AXGroup")));
    }
    children.push_back(child(field));
    EXPECT_EQ(find(element("AXWindow", children)), field);
}

TEST_F(FindURLElementTest, SearchesDepthFirstInTheOrderOfTheChildren) {
    const auto deep = textField("address and search");
    const auto shallow = textField("address and search");
    const auto window = element(
        "AXWindow", {child(element("AXGroup", {child(element("AXGroup", {child(deep)}))})), child(shallow)});
    EXPECT_EQ(find(window), deep);
}

TEST_F(FindURLElementTest, ACycleEndsByTheBudget) {
    const auto window = element("AXWindow");
    window->children({child(window)});
    EXPECT_EQ(find(window), nullptr);
    window->children({});  // break the cycle so that the elements are freed
}

TEST_F(FindURLElementTest, AWideCycleEndsByTheDeadline) {
    const auto window = element("AXWindow");
    window->children(std::vector<AXValue>(40, child(window)));
    auto now = std::chrono::steady_clock::time_point{};
    int reads = 0;
    accessibility.onRead = [&](const std::string&) {
        ++reads;
        now += std::chrono::microseconds(500);
    };
    useragent::SearchReader reader(
        accessibility, [&] { return now; }, std::chrono::seconds(1));
    EXPECT_EQ(FindURLElement(reader, window, 0), nullptr);
    EXPECT_TRUE(reader.expired());
    EXPECT_EQ(reads, 2000);
    window->children({});
}

TEST_F(FindURLElementTest, AHundredThousandChildrenAreWalkedOnce) {
    std::vector<AXValue> children(100000, child(element("AXGroup")));
    const auto field = textField("address and search");
    children.push_back(child(field));
    int roles = 0;
    accessibility.onRead = [&](const std::string& attribute) { roles += attribute == "AXRole"; };
    EXPECT_EQ(find(element("AXWindow", children)), field);
    EXPECT_EQ(roles, 100001);
}

}  // namespace
