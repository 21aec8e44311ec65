#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#import "common_mac/CFAutoPointer.h"
#import "common_mac/FoundationBridges.h"
#import "common_mac/standard_errors.h"

// Between C++ and the platform's objects.
namespace {

using cmn::CFAutoPointer;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(BridgesTest, TextsComeBackAsTheyWere) {
    for (const std::string text : {"", "plain", "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\xA6\x8A"}) {
        EXPECT_EQ(cmn::ToStdString([NSString stringWithStdString:text]), text);
        EXPECT_EQ(cmn::ToStdString(cmn::ToNSString(text)), text);
    }
}

TEST(BridgesTest, WhatIsNoUtf8IsNoText) {
    EXPECT_EQ([NSString stringWithStdString:"a\xFF"], nil);
    EXPECT_EQ(cmn::ToStdString(cmn::ToNSString("a\xFF")), "");
    EXPECT_EQ(cmn::ToStdString(static_cast<NSString*>(nil)), "");
}

TEST(BridgesTest, ListsKeepTheirOrder) {
    NSArray<NSString*>* const array = [NSArray arrayWithStringVector:{"b", "", "a"}];
    EXPECT_EQ(array.count, 3U);
    EXPECT_THAT([array stdStringVector], ElementsAre("b", "", "a"));
}

TEST(BridgesTest, AListWithWhatIsNoUtf8Fails) {
    const std::vector<std::string> texts{"a", "\xFF"};
    EXPECT_THROW([NSArray arrayWithStringVector:texts], std::runtime_error);
}

TEST(BridgesTest, URLsOfEveryKindComeBackWhole) {
    for (const std::string text :
         {"https://example.com/a?b=c#d", "tessarin-scheme://showProperties?path=/etc/hosts", "about:blank",
          "file:///tmp/a%20b", "mailto:someone@example.com"}) {
        EXPECT_EQ(cmn::ToStdString([NSURL URLWithStdString:text]), text);
    }
    EXPECT_EQ(cmn::ToStdString(static_cast<NSURL*>(nil)), "");
    EXPECT_EQ([NSURL URLWithStdString:"\xFF"], nil);
}

TEST(BridgesTest, URLsOfFilesAreMadeOfPaths) {
    NSURL* const url = [NSURL fileURLWithStdString:"/tmp/a b \xC3\xA4"];
    EXPECT_EQ(cmn::ToStdString(url.path), "/tmp/a b \xC3\xA4");
    EXPECT_THAT(cmn::ToStdString(url), testing::StartsWith("file:///tmp/a%20b"));
}

TEST(StandardErrorsTest, AnExceptionOfThePlatformIsAStandardOne) {
    NSArray* const empty = [NSArray array];
    try {
        cmn::WithStandardErrors("a message", [&] { return empty[5]; });
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& e) {
        EXPECT_THAT(e.what(), testing::StartsWith("a message -- failed: "));
    }
}

CFTypeRef NewObject() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

TEST(CFAutoPointerTest, CountsReferencesAsThePlatformDoes) {
    const CFTypeRef object = NewObject();
    CFRetain(object);  // the test's own
    {
        const CFAutoPointer owner(object);
        EXPECT_EQ(CFGetRetainCount(object), 2);
        const CFAutoPointer copy = owner;
        EXPECT_EQ(CFGetRetainCount(object), 3);
        const CFAutoPointer shared = CFAutoPointer::Retained(object);
        EXPECT_EQ(CFGetRetainCount(object), 4);
    }
    EXPECT_EQ(CFGetRetainCount(object), 1);
    CFRelease(object);
}

TEST(CFAutoPointerTest, IsOnlyWhatItIsAskedFor) {
    const CFAutoPointer owner(NewObject());
    EXPECT_EQ(owner.as<CFStringRef>(CFStringGetTypeID()), nullptr);
    EXPECT_NE(owner.as<CFTypeRef>(CFGetTypeID(owner.get())), nullptr);
}

}  // namespace
