#include <gtest/gtest.h>

#include "useragent/PropertiesURL.h"

namespace {

using useragent::ParsePropertiesURL;
using useragent::PropertiesRequest;

std::optional<PropertiesRequest> Path(const char* path) {
    return PropertiesRequest{path};
}

TEST(PropertiesURLTest, TakesThePathOfTheQuery) {
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=/home/u/report.xlsx"),
              Path("/home/u/report.xlsx"));
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties/?path=/a#part"), Path("/a"));
}

TEST(PropertiesURLTest, DecodesPercentEscapesAndNothingElse) {
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=%2Fa%20b%26c%3Dd%23e%25f+g"),
              Path("/a b&c=d#e%f+g"));
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=%c3%A4"), Path("\u00e4"));
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=/a b/\u00e4=c"),
              Path("/a b/\u00e4=c"));
}

TEST(PropertiesURLTest, TheFirstOfSeveralPathsCounts) {
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?x=1&path=/a&path=/b"), Path("/a"));
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?p%61th=/a"), Path("/a"));
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path&path=/b"), PropertiesRequest{});
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=&path=/b"), Path(""));
}

TEST(PropertiesURLTest, ARequestNeedsNoPath) {
    for (const char* url :
         {"tessarin-scheme://showProperties", "tessarin-scheme://showProperties?",
          "tessarin-scheme://showProperties/", "tessarin-scheme://showProperties?Path=/a",
          "tessarin-scheme://showProperties#?path=/a", "tessarin-scheme://showProperties?&&"}) {
        EXPECT_EQ(ParsePropertiesURL(url), PropertiesRequest{}) << url;
    }
}

TEST(PropertiesURLTest, OtherSchemesAndHostsAreIgnored) {
    for (const char* url :
         {"", "tessarin-scheme", "tessarin-scheme:showProperties?path=/a", "tessarin-scheme:///?path=/a",
          "Tessarin-scheme://showProperties?path=/a", "tessarin-scheme://showproperties?path=/a",
          "tessarin-scheme://other?path=/x", "tessarin-scheme://showProperties.evil?path=/x",
          "http://showProperties?path=/a", " tessarin-scheme://showProperties?path=/a",
          "tessarin-scheme://x/showProperties?path=/a", "tessarin-scheme://showProperties@x?path=/a"}) {
        EXPECT_EQ(ParsePropertiesURL(url), std::nullopt) << url;
    }
}

TEST(PropertiesURLTest, UserAndPortAreNotPartOfTheHost) {
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://u@showProperties:1?path=/a"), Path("/a"));
}

TEST(PropertiesURLTest, BrokenEscapesAndNulsAreIgnored) {
    for (const char* query : {"path=/a%", "path=/a%2", "path=/a%zz", "path=/a%00b", "x=%&path=/a"}) {
        EXPECT_EQ(ParsePropertiesURL(std::string("tessarin-scheme://showProperties?") + query), std::nullopt)
            << query;
    }
}

TEST(PropertiesURLTest, BytesThatAreNoTextAreKept) {
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=/caf%E9"), Path("/caf\xE9"));
    EXPECT_EQ(ParsePropertiesURL("tessarin-scheme://showProperties?path=/caf\xE9"), Path("/caf\xE9"));
}

TEST(PropertiesURLTest, AsTextAUrlStillNamesTheSameFile) {
    const std::string url = "tessarin-scheme://showProperties?path=/caf\xE9/\u00E4%20\xFF";
    EXPECT_EQ(useragent::TextOfURL(url), "tessarin-scheme://showProperties?path=/caf%E9/\u00E4%20%FF");
    EXPECT_EQ(ParsePropertiesURL(useragent::TextOfURL(url)), ParsePropertiesURL(url));
}

TEST(PropertiesURLTest, AUrlThatIsLongerThanAnyPathIsIgnored) {
    const std::string start = "tessarin-scheme://showProperties?path=";
    const std::string longest = start + std::string(useragent::kLongestPropertiesURL - start.size(), 'a');
    EXPECT_TRUE(ParsePropertiesURL(longest));
    EXPECT_FALSE(ParsePropertiesURL(longest + "a"));
}

}  // namespace
