#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/exceptions.h"
#include "useragent/AgentStatus.h"

namespace {

using useragent::AgentStatus;

AgentStatus FullStatus() {
    AgentStatus status;
    status.version = "1.2.3";
    status.pid = 47;
    status.runningForSeconds = 3600;
    status.sessionType = "wayland";
    status.icon = "status area";
    status.services = {{"com.tessarin.UserAgent", true}, {"com.tessarin.FinderExtension", true}};
    status.permissions = {true, true, true};
    status.browsers = {{"Firefox", 11, std::uint64_t{5}, "a.example"}};
    status.lastReport = {"Firefox", 7, "b.example"};
    return status;
}

std::string Json(const AgentStatus& status) {
    return cmn::proto::ObjectToJson(status);
}

TEST(AgentStatus, IsTheSameAfterItsWayThroughJson) {
    const AgentStatus again = cmn::proto::JsonToObjectImpl<AgentStatus>(Json(FullStatus()));
    EXPECT_EQ(Json(again), Json(FullStatus()));
    EXPECT_EQ(again.version, "1.2.3");
    EXPECT_EQ(again.pid, 47);
    EXPECT_EQ(again.services.at(1).name, "com.tessarin.FinderExtension");
    EXPECT_TRUE(again.services.at(1).reached);
    EXPECT_TRUE(again.permissions.finderExtension);
    EXPECT_EQ(again.browsers.at(0).readForSeconds, 5U);
    EXPECT_EQ(again.lastReport->secondsAgo, 7U);
}

TEST(AgentStatus, WhatIsNotKnownIsNullInJson) {
    AgentStatus status = FullStatus();
    status.browsers[0].readForSeconds.reset();
    status.lastReport.reset();
    const AgentStatus again = cmn::proto::JsonToObjectImpl<AgentStatus>(Json(status));
    EXPECT_FALSE(again.browsers[0].readForSeconds);
    EXPECT_FALSE(again.lastReport);
    EXPECT_NE(Json(status).find("\"lastReport\": null"), std::string::npos);
}

TEST(AgentStatus, JsonOfAnotherShapeIsRefused) {
    for (const char* const text : {"", "[]", "7", "{\"services\": 7}", "{\"browsers\": [3]}",
                                   "{\"pid\": ", "{\"permissions\": []}", "{\"version\": {}}"}) {
        EXPECT_THROW(cmn::proto::JsonToObjectImpl<AgentStatus>(text), std::exception) << text;
    }
}

TEST(AgentStatus, AllIsWellUntilOneThingIsNot) {
    EXPECT_TRUE(AllIsWell(FullStatus()));
    const std::vector<std::function<void(AgentStatus&)>> faults{
        [](AgentStatus& status) { status.services[0].reached = false; },
        [](AgentStatus& status) { status.services[1].reached = false; },
        [](AgentStatus& status) { status.permissions.fullDiskAccess = false; },
        [](AgentStatus& status) { status.permissions.accessibility = false; },
        [](AgentStatus& status) { status.permissions.finderExtension = false; },
        [](AgentStatus& status) { status.browsers[0].readForSeconds.reset(); }};
    for (const auto& fault : faults) {
        AgentStatus status = FullStatus();
        fault(status);
        EXPECT_FALSE(AllIsWell(status)) << Json(status);
    }
    AgentStatus quiet = FullStatus();
    quiet.icon = DescribePlace(useragent::IconPlace::none);
    quiet.browsers.clear();
    quiet.lastReport.reset();
    EXPECT_TRUE(AllIsWell(quiet)) << "no browser runs, and the desktop has no place for icons";
}

TEST(AgentStatus, HasNoAddressAfterTheyWereRemoved) {
    AgentStatus status = FullStatus();
    RemoveAddresses(status);
    EXPECT_EQ(Json(status).find("example"), std::string::npos);
    EXPECT_EQ(status.browsers.at(0).name, "Firefox");
    EXPECT_EQ(status.lastReport->secondsAgo, 7U);
}

}  // namespace
