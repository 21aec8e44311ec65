#include <gtest/gtest.h>

#include <chrono>

#include "support/FakeAccessibility.h"
#include "useragent/FindURLElement.h"
#include "useragent/SearchReader.h"

namespace {

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;

class SearchReaderTest : public testing::Test {
 protected:
    fake::ElementPtr element(const std::string& role, std::vector<AXValue> children = {}) {
        const auto made = std::make_shared<fake::Element>(1);
        made->set("AXRole", role).children(std::move(children));
        return made;
    }
    fake::ElementPtr field() {
        const auto made = element("AXTextField");
        made->set("AXDescription", "Address and search bar").set("AXDOMIdentifier", "urlbar-input");
        return made;
    }
    AXElementRef find(const fake::ElementPtr& window) { return useragent::FindURLElement(reader, window, 0); }

    fake::Accessibility accessibility;
    std::chrono::steady_clock::time_point now;
    useragent::SearchReader reader{accessibility, [this] { return now; }, std::chrono::seconds(1)};
};

TEST_F(SearchReaderTest, TheInsideOfAWebPageIsNotSeen) {
    const auto page = element("AXWebArea", {AXElementRef(field())});
    EXPECT_EQ(find(element("AXWindow", {AXElementRef(page)})), nullptr);
    EXPECT_EQ(find(element("AXWindow", {AXElementRef(element("AXGroup", {AXElementRef(page)}))})), nullptr);
}

TEST_F(SearchReaderTest, TheFieldBehindAWebPageIsFound) {
    const auto page = element("AXWebArea", {AXElementRef(field())});
    const auto real = field();
    EXPECT_EQ(find(element("AXWindow",
                           {AXElementRef(page), AXElementRef(element("AXToolbar", {AXElementRef(real)}))})),
              real);
}

TEST_F(SearchReaderTest, AnElementThatIsNoWebPageAnyMoreIsSeen) {
    const auto area = element("AXWebArea", {AXElementRef(field())});
    const auto window = element("AXWindow", {AXElementRef(area)});
    EXPECT_EQ(find(window), nullptr);
    area->set("AXRole", "AXGroup");
    EXPECT_NE(find(window), nullptr);
}

TEST_F(SearchReaderTest, NothingIsAskedAfterTheDeadline) {
    AXValue value;
    EXPECT_EQ(reader.copyAttributeValue(field(), "AXRole", value), AXError::success);
    EXPECT_FALSE(reader.expired());
    now += std::chrono::seconds(1);
    EXPECT_EQ(reader.copyAttributeValue(field(), "AXRole", value), AXError::cannotComplete);
    EXPECT_TRUE(reader.expired());
}

}  // namespace
