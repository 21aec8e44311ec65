#include <QVariant>

#include "World.h"

namespace ctl {
namespace {

class ServiceChecksTest : public World {};

TEST_F(ServiceChecksTest, AServiceThatNobodyOffersIsNamed) {
    finderService.reset();
    EXPECT_THAT(run(CheckServices),
                Is(Verdict::wrong, "Nobody offers com.tessarin.FinderExtension", "systemctl"));
    userAgentService.reset();
    EXPECT_THAT(run(CheckServices), Is(Verdict::wrong, "Nobody offers com.tessarin.UserAgent", "systemctl"));
}

TEST_F(ServiceChecksTest, AServiceThatHangsIsNamed) {
    finderService.reset();
    finderService = silent(systemBus, "com.tessarin.FinderExtension");
    EXPECT_THAT(run(CheckServices, kShort),
                Is(Verdict::wrong, "com.tessarin.FinderExtension does not answer", "systemctl"));
}

TEST_F(ServiceChecksTest, WhoMayNotCallAServiceIsTold) {
    userAgentService.reset();
    userAgentService = std::make_unique<fake::RawPeer>(
        systemBus.address(), [](const QDBusMessage& call, QDBusConnection connection) {
            connection.send(call.createErrorReply("org.freedesktop.DBus.Error.AccessDenied", "rules"));
        });
    ASSERT_TRUE(userAgentService->own("com.tessarin.UserAgent"));
    EXPECT_THAT(run(CheckServices), Is(Verdict::wrong, "keeps this user from com.tessarin.UserAgent: rules",
                                       "/etc/dbus-1/system.d"));
}

TEST_F(ServiceChecksTest, AServiceOfSomebodyElseIsAWarningUnlessTheSettingsForbidIt) {
    serviceUser = geteuid() + 1;
    EXPECT_THAT(run(CheckServices),
                Is(Verdict::warning, "not by root", "busctl --system status com.tessarin.UserAgent"));
    Write(settings, R"({"RequireRootServices": true})");
    EXPECT_THAT(run(CheckServices), Is(Verdict::wrong, "agents do not use it", "busctl --system status"));
}

TEST_F(ServiceChecksTest, WhatIsWrongGoesBeforeWhatIsAWarning) {
    serviceUser = geteuid() + 1;
    finderService.reset();
    EXPECT_THAT(run(CheckServices),
                Is(Verdict::wrong, "Nobody offers com.tessarin.FinderExtension", "start"));
}

TEST_F(ServiceChecksTest, ASystemBusThatIsNotThereIsTold) {
    systemAddress = "unix:path=/nonexistent/bus";
    EXPECT_THAT(run(CheckServices),
                Is(Verdict::wrong, "The system bus cannot be reached", "systemctl start dbus"));
}

TEST_F(ServiceChecksTest, ASessionBusThatIsNotThereIsTold) {
    sessionAddress = "";
    EXPECT_THAT(run(CheckSessionBus),
                Is(Verdict::wrong, "there is no address of such a bus", "DBUS_SESSION_BUS_ADDRESS"));
    EXPECT_THAT(run(CheckAgent), Is(Verdict::warning, "cannot be told", "log in"));
}

TEST_F(ServiceChecksTest, AnAgentThatDoesNotRunIsStarted) {
    agent.reset();
    const Finding finding = run(CheckAgent);
    const std::string start = (bundle / "Contents/Resources/session/start").string();
    ASSERT_THAT(finding, Is(Verdict::wrong, "does not run", start));
    finding.mend(machine(), cmn::bus::Clock::now());
    EXPECT_THAT(commands, testing::ElementsAre(testing::ElementsAre("setsid", "--fork", start)));
    onRun = [](const auto&) { return false; };
    EXPECT_THROW(finding.mend(machine(), cmn::bus::Clock::now()), std::runtime_error);
}

// Takes the name and then nothing more.
constexpr const char* kHangingAgent = R"(
import sys, time
from jeepney import DBusAddress, new_method_call
from jeepney.io.blocking import open_dbus_connection
connection = open_dbus_connection(sys.argv[1])
bus = DBusAddress("/org/freedesktop/DBus", "org.freedesktop.DBus", "org.freedesktop.DBus")
connection.send_and_get_reply(new_method_call(bus, "RequestName", "su", ("com.tessarin.TessarinUserAgent", 4)))
print("ready", flush=True)
time.sleep(1000)
)";

TEST_F(ServiceChecksTest, AnAgentThatHangsIsNamed) {
    agent.reset();
    fake::ChildProcess hanging({"/usr/bin/python3", "-c", kHangingAgent, sessionAddress});
    ASSERT_EQ(hanging.readLine(), "ready");
    EXPECT_THAT(run(CheckAgent, kShort), Is(Verdict::wrong, "does not answer", "busctl --user status"));
}

}  // namespace
}  // namespace ctl
