#include <fmt/format.h>

#include <string>

#include "common/make_error.h"
#include "doctor/Checks.h"
#include "doctor/Installation.h"
#include "doctor/Machine.h"
#include "useragent/AgentNames.h"
#include "xpccommon/FinderExtensionProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;

constexpr const char* kStartService =
    "start Tessarin's service; where the development host stands in for it: sudo systemctl restart "
    "tessarin-service-host";

Finding CheckService(const Machine& machine, bus::Connection& connection, const char* service,
                     bus::Deadline deadline) {
    const auto owner = OwnerOf(connection, service, deadline);
    if (owner && !owner->has_value()) {
        return {Verdict::wrong, fmt::format("Nobody offers {}", service), kStartService};
    }
    const auto user = owner ? UserOf(connection, **owner, deadline) : owner.error();
    if (!user) {
        return {Verdict::wrong,
                fmt::format("The system bus does not say who offers {}: {}", service, Words(user.error())),
                "systemctl status dbus"};
    }
    const auto version =
        connection.callAndWait(connection.makeCall(service, PathOf(service), service, "Version"), deadline);
    if (!version && version.error().is(bus::error::kAccessDenied)) {
        return {
            Verdict::wrong,
            fmt::format("The policy of the bus keeps this user from {}: {}", service, Words(version.error())),
            "an administrator looks into /etc/dbus-1/system.d; without the product's own policy: " +
                ReinstallCommand(machine)};
    }
    if (!version) {
        return {Verdict::wrong, fmt::format("{} does not answer: {}", service, Words(version.error())),
                kStartService};
    }
    if (*user != machine.serviceUser) {
        const bool isRefused = RequiresRootServices(SettingsOf(machine));
        return {isRefused ? Verdict::wrong : Verdict::warning,
                fmt::format("{} is run by the user with the id {} and not by root{}", service, *user,
                            isRefused ? ", so agents do not use it" : ""),
                fmt::format("busctl --system status {}", service)};
    }
    return Good("");
}

}  // namespace

Finding CheckServices(const Machine& machine, bus::Deadline deadline) {
    const auto connection = machine.buses->system(deadline);
    if (!connection) {
        return {Verdict::wrong,
                fmt::format("The system bus cannot be reached: {}", Words(connection.error())),
                "sudo systemctl start dbus"};
    }
    Finding worst = Good("Both are there and answer");
    for (const char* const service :
         {cmn::kUserAgentMachServiceName, cmn::kFinderExtensionXPCMachServiceName}) {
        Finding finding = CheckService(machine, **connection, service, deadline);
        if (finding.verdict > worst.verdict) {
            worst = std::move(finding);
        }
    }
    return worst;
}

Finding CheckSessionBus(const Machine& machine, bus::Deadline deadline) {
    const auto connection = machine.buses->session(deadline);
    if (!connection) {
        return {Verdict::wrong, fmt::format("It cannot be reached: {}", Words(connection.error())),
                "run this in the session itself, with its DBUS_SESSION_BUS_ADDRESS, or log in again"};
    }
    const auto answer = AskBus<std::string>(**connection, "GetId", deadline);
    return answer ? Good("It answers")
                  : Finding{Verdict::wrong, fmt::format("It does not answer: {}", Words(answer.error())),
                            "log in again"};
}

Finding CheckAgent(const Machine& machine, bus::Deadline deadline) {
    const auto connection = machine.buses->session(deadline);
    if (!connection) {
        return {Verdict::warning, "Without the session's bus it cannot be told whether it runs",
                "log in again"};
    }
    const auto owner = OwnerOf(**connection, useragent::kApplicationName, deadline);
    if (owner && !owner->has_value()) {
        const std::string start = (machine.bundle / "Contents/Resources/session/start").string();
        return {Verdict::wrong, "It does not run", start, [start](const Machine& here, bus::Deadline until) {
                    if (!here.runs({"setsid", "--fork", start}, until)) {
                        throw cmn::make_error(Quoted(start), " could not be started");
                    }
                }};
    }
    const auto answer = owner ? (*connection)
                                    ->callAndWait((*connection)
                                                      ->makeCall(useragent::kApplicationName, "/",
                                                                 "org.freedesktop.DBus.Peer", "Ping"),
                                                  deadline)
                              : bus::Connection::Reply(owner.error());
    return answer ? Good("It runs")
                  : Finding{Verdict::wrong, fmt::format("It does not answer: {}", Words(answer.error())),
                            fmt::format("end the process that this names, and start the agent again: busctl "
                                        "--user status {}",
                                        useragent::kApplicationName)};
}

}  // namespace ctl
