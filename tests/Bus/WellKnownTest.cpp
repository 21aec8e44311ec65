#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "linux_bus/WellKnown.h"

namespace {

// A variable of the environment for the duration of a test.
class EnvironmentValue {
 public:
    EnvironmentValue(const char* name, const char* value) : name_(name) {
        if (const char* const old = std::getenv(name)) {
            old_ = old;
        }
        set(value);
    }
    ~EnvironmentValue() { set(old_ ? old_->c_str() : nullptr); }
    EnvironmentValue(const EnvironmentValue&) = delete;
    EnvironmentValue& operator=(const EnvironmentValue&) = delete;

 private:
    void set(const char* value) const {
        if (value != nullptr) {
            setenv(name_, value, 1);
        } else {
            unsetenv(name_);
        }
    }

    const char* const name_;
    std::optional<std::string> old_;
};

using cmn::bus::LocalAddresses;

TEST(WellKnownTest, KeepsTheOrderAndLeavesOutWaysThatBlockOrStartPrograms) {
    EXPECT_EQ(LocalAddresses("tcp:host=a,port=1;unix:path=/a,guid=1;unixexec:path=/b;unix:abstract=c"),
              (std::vector<std::string>{"unix:path=/a,guid=1", "unix:abstract=c"}));
    EXPECT_TRUE(LocalAddresses("").empty());
    EXPECT_TRUE(LocalAddresses("nonsense;;").empty());
}

TEST(WellKnownTest, TheSystemBusComesFromTheEnvironmentElseItIsTheUsualSocket) {
    {
        const EnvironmentValue address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/elsewhere");
        EXPECT_EQ(cmn::bus::SystemBusAddress(), "unix:path=/elsewhere");
    }
    const EnvironmentValue none("DBUS_SYSTEM_BUS_ADDRESS", nullptr);
    EXPECT_EQ(cmn::bus::SystemBusAddress(), "unix:path=/run/dbus/system_bus_socket");
}

TEST(WellKnownTest, TheSessionBusComesFromTheEnvironmentElseFromTheRuntimeFolder) {
    {
        const EnvironmentValue address("DBUS_SESSION_BUS_ADDRESS", "unix:path=/elsewhere");
        EXPECT_EQ(cmn::bus::SessionBusAddress(), "unix:path=/elsewhere");
    }
    const EnvironmentValue none("DBUS_SESSION_BUS_ADDRESS", nullptr);
    {
        const EnvironmentValue folder("XDG_RUNTIME_DIR", "/run/user/1");
        EXPECT_EQ(cmn::bus::SessionBusAddress(), "unix:path=/run/user/1/bus");
    }
    const EnvironmentValue nowhere("XDG_RUNTIME_DIR", nullptr);
    EXPECT_EQ(cmn::bus::SessionBusAddress(), "");
}

}  // namespace
