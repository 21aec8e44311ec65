#include <gtest/gtest.h>

#include "windowlist/OwnerName.h"

using useragent::OwnerName;

namespace {

class ChromeBuilds : public testing::TestWithParam<const char*> {};
TEST_P(ChromeBuilds, AreGoogleChrome) {
    EXPECT_EQ(OwnerName(GetParam()), "Google Chrome");
}
INSTANTIATE_TEST_SUITE_P(OwnerName, ChromeBuilds,
                         testing::Values("Chromium", "chromium", "Chromium-browser", "chromium-browser-dev",
                                         "Google-chrome", "google-chrome", "Google-chrome-beta",
                                         "google-chrome-unstable", "Google Chrome", "Google Chrome Dev",
                                         "org.chromium.Chromium", "com.google.Chrome",
                                         "com.google.Chrome-dev", "com.google.ChromeDev",
                                         "com.google.ChromeBeta", "ChromeCanary", "chromium_chromium",
                                         "chromium-browser_chromium", "chromium_chromium-browser"));

class FirefoxBuilds : public testing::TestWithParam<const char*> {};
TEST_P(FirefoxBuilds, AreFirefox) {
    EXPECT_EQ(OwnerName(GetParam()), "Firefox");
}
INSTANTIATE_TEST_SUITE_P(OwnerName, FirefoxBuilds,
                         testing::Values("Firefox", "firefox", "firefox-esr", "Firefox-esr", "Firefox ESR",
                                         "firefox-nightly", "Firefox Nightly", "Nightly", "firefox-default",
                                         "firefox-aurora", "Firefox Developer Edition", "firefox-beta",
                                         "Mozilla Firefox", "org.mozilla.firefox", "firefox_firefox",
                                         "firefox_esr_firefox", "firefox-esr_firefox", "FirefoxNightly",
                                         "org.mozilla.FirefoxDevEdition"));

class OtherApplications : public testing::TestWithParam<const char*> {};
TEST_P(OtherApplications, KeepTheirName) {
    EXPECT_EQ(OwnerName(GetParam()), GetParam());
}
INSTANTIATE_TEST_SUITE_P(OwnerName, OtherApplications,
                         testing::Values("", " ", "-", ".", "XTerm", "Safari", "thunderbird",
                                         "Chromium B.S.U.", "chromium-bsu", "Chrome Remote Desktop",
                                         "firefoxes", "LibreWolf", "org.gnome.Nautilus", "Google Earth",
                                         "Mozilla", "browser", "ChromeRemoteDesktop", "firefox_chromium",
                                         "chromium_firefox", "fireFox", "mozilla_mozilla",
                                         "chromium_thunderbird", "dev_chrome", "\xC3\xA4 firefox",
                                         "Firefox\xFF"));

}  // namespace
