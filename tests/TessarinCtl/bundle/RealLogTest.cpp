#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "TessarinUserAgent/PollingGate.h"
#include "XPCCommon/ScriptedUserAgent.h"
#include "common/Redaction.h"
#include "support/FakeAccessibility.h"
#include "support/FakeWindowList.h"
#include "support/LogCapture.h"
#include "useragent/BrowserURLWatcher.h"

namespace ctl {
namespace {

// The programs' own lines, at the level that says most, with what somebody typed.
TEST(RealLogTest, WhatWasTypedIntoABrowserIsTakenOutOfTheAgentsLines) {
    fake::LogCapture log;
    ScriptedUserAgent daemon;
    const auto accessibility = std::make_shared<fake::Accessibility>();
    const auto windows = std::make_shared<fake::WindowList>();
    const auto gate = std::make_shared<PollingGate>();
    const auto browser = accessibility->addBrowser(11, "my secret search");
    windows->set({{{"Firefox", 11}}});
    auto watcher = useragent::CreateBrowserURLWatcher(
        {"Firefox"}, {accessibility, windows, gate, [] { return std::chrono::steady_clock::now(); }});
    gate->awaitFirstCycle();
    watcher->setXPCClient(daemon.client());
    for (const char* const typed : {"a secret\nof two lines", "intranet/secret page", "secret"}) {
        browser.field->set("AXValue", typed);
        accessibility->notify(browser.field, "AXValueChanged");
    }
    browser.field->set("AXValue", fake::Text("secret", fake::String::Storage::inconvertible));
    accessibility->notify(browser.field, "AXValueChanged");
    watcher.reset();
    const std::string written = log.text();
    ASSERT_GE(log.count("secret"), 5U) << written;
    cmn::Redaction redaction;
    const std::string redacted = redaction.log(written);
    EXPECT_THAT(redacted, testing::Not(testing::HasSubstr("secret")));
    EXPECT_THAT(redacted, testing::HasSubstr("Found URL element for -- Firefox"));
    EXPECT_THAT(redacted, testing::HasSubstr("Current URL -- <address-1>\n"));
    EXPECT_THAT(redacted, testing::HasSubstr("URL changed for Firefox <address-1> 11\n"));
}

}  // namespace
}  // namespace ctl
