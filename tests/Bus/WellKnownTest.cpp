#include <gtest/gtest.h>

#include <optional>

#include "linux_bus/WellKnown.h"
#include "support/Environment.h"

namespace {

using cmn::bus::LocalAddresses;

TEST(WellKnownTest, KeepsTheOrderAndLeavesOutWaysThatBlockOrStartPrograms) {
    EXPECT_EQ(LocalAddresses("tcp:host=a,port=1;unix:path=/a,guid=1;unixexec:path=/b;unix:abstract=c"),
              (std::vector<std::string>{"unix:path=/a,guid=1", "unix:abstract=c"}));
    EXPECT_TRUE(LocalAddresses("").empty());
    EXPECT_TRUE(LocalAddresses("nonsense;;").empty());
}

TEST(WellKnownTest, TheSystemBusComesFromTheEnvironmentElseItIsTheUsualSocket) {
    {
        const fake::Environment address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/elsewhere");
        EXPECT_EQ(cmn::bus::SystemBusAddress(), "unix:path=/elsewhere");
    }
    const fake::Environment none("DBUS_SYSTEM_BUS_ADDRESS", std::nullopt);
    EXPECT_EQ(cmn::bus::SystemBusAddress(), "unix:path=/run/dbus/system_bus_socket");
}

TEST(WellKnownTest, TheSessionBusComesFromTheEnvironmentElseFromTheRuntimeFolder) {
    {
        const fake::Environment address("DBUS_SESSION_BUS_ADDRESS", "unix:path=/elsewhere");
        EXPECT_EQ(cmn::bus::SessionBusAddress(), "unix:path=/elsewhere");
    }
    const fake::Environment none("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    {
        const fake::Environment folder("XDG_RUNTIME_DIR", "/run/user/1");
        EXPECT_EQ(cmn::bus::SessionBusAddress(), "unix:path=/run/user/1/bus");
    }
    const fake::Environment nowhere("XDG_RUNTIME_DIR", std::nullopt);
    EXPECT_EQ(cmn::bus::SessionBusAddress(), "");
}

}  // namespace
