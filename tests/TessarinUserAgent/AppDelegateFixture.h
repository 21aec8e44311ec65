#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "FakeInterface.h"
#include "XPCCommon/ScriptedFinderExtension.h"
#include "support/FakeDispatch.h"
#include "support/SystemLogCapture.h"
#include "useragent/AppDelegate.h"

// The delegate of an application whose service, interface, menu and time are the test's.
class AppDelegateFixture : public testing::Test {
 protected:
    void SetUp() override { delegate = makeDelegate(); }
    void TearDown() override { dispatch->close(); }

    std::shared_ptr<useragent::AppDelegate> makeDelegate() {
        return std::make_shared<useragent::AppDelegate>(useragent::AppDelegate::Environment{
            interface,
            std::make_shared<useragent::AppMenu>(menu.make()),
            std::make_shared<useragent::PermissionNotices>(useragent::PermissionNotices::Environment{
                notices, menu.extension, menu.panes, useragent::ToldOnce()}),
            dispatch,
            service.transport(),
            {[this] { return settings(); }, [] { return useragent::WallTime(); }},
            otherStatus});
    }
    // Launched, connected, refreshed once.
    void launch() {
        delegate->applicationDidFinishLaunching();
        dispatch->runUntilIdle();
    }

    fake::SystemLogCapture systemLog;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedFinderExtension service{dispatch};
    std::shared_ptr<fake::Interface> interface = std::make_shared<fake::Interface>();
    fake::Menu menu;
    std::shared_ptr<fake::Notices> notices = std::make_shared<fake::Notices>();
    std::function<cmn::proto::TSettings()> settings = [] { return cmn::proto::TSettings(); };
    useragent::StatusSource otherStatus = [](useragent::AgentStatus& status) {
        status.version = "4.5.6";
        status.browsers.push_back({"Firefox", 11, std::uint64_t{3}, "a.example"});
        status.lastReport = {"Firefox", 2, "b.example"};
    };
    std::shared_ptr<useragent::AppDelegate> delegate;
};
