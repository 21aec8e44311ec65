#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>

#include "linux_usercommon/BusAddress.h"

namespace {

class Variable {
 public:
    Variable(const char* name, const char* value) : name_(name) {
        if (const char* before = ::getenv(name)) {
            before_ = before;
        }
        value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
    ~Variable() { before_ ? ::setenv(name_, before_->c_str(), 1) : ::unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

 private:
    const char* const name_;
    std::optional<std::string> before_;
};

std::string OneName(const std::string& list) {
    const auto addresses = cmn::ParseBusAddresses(list);
    return addresses.size() == 1 ? addresses[0].socketName : "(" + std::to_string(addresses.size()) + ")";
}

TEST(BusAddressTest, ReadsThePathOfALocalSocket) {
    EXPECT_EQ(OneName("unix:path=/run/dbus/system_bus_socket"), "/run/dbus/system_bus_socket");
    EXPECT_EQ(OneName("unix:path=/a,guid=0123"), "/a");
    EXPECT_EQ(OneName("unix:guid=0123,path=/a"), "/a");
}

TEST(BusAddressTest, ReadsAnAbstractName) {
    EXPECT_EQ(OneName("unix:abstract=/tmp/dbus-x"), std::string("\0/tmp/dbus-x", 12));
}

TEST(BusAddressTest, UndoesEscapes) {
    EXPECT_EQ(OneName("unix:path=/a%20b%2c%C3%A4"), "/a b,\xc3\xa4");
    for (const char* bad : {"unix:path=/a%2", "unix:path=/a%", "unix:path=/a%zz", "unix:path=/a%2x"}) {
        EXPECT_EQ(OneName(bad), "(0)") << bad;
    }
}

TEST(BusAddressTest, KeepsTheOrderAndLeavesOutOtherTransports) {
    const auto addresses =
        cmn::ParseBusAddresses("tcp:host=a,port=1;unix:path=/a;unixexec:path=/b;unix:path=/c");
    ASSERT_EQ(addresses.size(), 2U);
    EXPECT_EQ(addresses[0].socketName, "/a");
    EXPECT_EQ(addresses[0].address, "unix:path=/a");
    EXPECT_EQ(addresses[1].socketName, "/c");
}

TEST(BusAddressTest, FindsNothingInNonsense) {
    for (const char* bad : {"", ";", "unix", "unix:", "unix:path", "unix:path=", "unix:tmpdir=/tmp", "/a"}) {
        EXPECT_EQ(OneName(bad), "(0)") << bad;
    }
}

TEST(BusAddressTest, TheSystemBusComesFromTheEnvironmentElseItIsTheUsualSocket) {
    {
        const Variable set("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/elsewhere");
        EXPECT_EQ(cmn::SystemBusAddress(), "unix:path=/elsewhere");
    }
    const Variable unset("DBUS_SYSTEM_BUS_ADDRESS", nullptr);
    EXPECT_EQ(cmn::SystemBusAddress(), "unix:path=/run/dbus/system_bus_socket");
}

TEST(BusAddressTest, TheSessionBusComesFromTheEnvironmentElseFromTheRuntimeFolder) {
    {
        const Variable set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/elsewhere");
        EXPECT_EQ(cmn::SessionBusAddress(), "unix:path=/elsewhere");
    }
    const Variable unset("DBUS_SESSION_BUS_ADDRESS", nullptr);
    {
        const Variable folder("XDG_RUNTIME_DIR", "/run/user/1");
        EXPECT_EQ(cmn::SessionBusAddress(), "unix:path=/run/user/1/bus");
    }
    const Variable none("XDG_RUNTIME_DIR", nullptr);
    EXPECT_EQ(cmn::SessionBusAddress(), "");
}

}  // namespace
