#include <gtest/gtest.h>

#include "permissions/SettingsPaneURLs.h"

namespace {

TEST(SettingsPaneURLsTest, FullDiskAccessIsElsewhereSinceMacOS13) {
    EXPECT_STREQ(useragent::FullDiskAccessPaneURL(true),
                 "x-apple.systempreferences:com.apple.settings.PrivacySecurity.extension?Privacy_AllFiles");
    EXPECT_STREQ(useragent::FullDiskAccessPaneURL(false),
                 "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles");
}

TEST(SettingsPaneURLsTest, AccessibilityIsAskedForInTheSamePlaceOnEveryVersion) {
    EXPECT_STREQ(useragent::AccessibilityPaneURL(),
                 "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility");
}

}  // namespace
