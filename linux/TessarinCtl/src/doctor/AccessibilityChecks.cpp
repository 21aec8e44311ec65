#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>
#include <vector>

#include "accessibility/AtspiQueries.h"
#include "common/make_error.h"
#include "doctor/Checks.h"
#include "doctor/Installation.h"
#include "doctor/Machine.h"

namespace ctl {

namespace {

namespace atspi = useragent::atspi;
namespace bus = cmn::bus;

constexpr const char* kSwitchOn =
    "busctl --user set-property org.a11y.Bus /org/a11y/bus org.a11y.Status IsEnabled b true";
constexpr const char* kRegistryRemedy =
    "end at-spi2-registryd, it is started again; under Wayland the session's bus has to be started with "
    "XDG_SESSION_TYPE=wayland and WAYLAND_DISPLAY in its environment";

Finding NoSessionBus() {
    return {Verdict::wrong, "The session's message bus cannot be reached, and with it no browser",
            "log in again"};
}

std::string RemedyFor(const BrowserState& browser) {
    return browser.name == "Google Chrome"
               ? "start Chromium and its kin with --force-renderer-accessibility=basic"
               : fmt::format("start {} again: it may have been started while accessibility was off",
                             browser.name);
}

}  // namespace

Finding CheckAccessibilityBus(const Machine& machine, bus::Deadline deadline) {
    const auto session = machine.buses->session(deadline);
    if (!session) {
        return NoSessionBus();
    }
    const std::string install =
        InstallCommand(machine, "at-spi2-core", "at-spi2-core") + ", then log in again";
    const auto address =
        bus::AskAndWait(*session, atspi::AddressOfAccessibilityBus(), bus::HalfWayTo(deadline));
    if (!address) {
        return {Verdict::wrong, fmt::format("This session has no accessibility: {}", Words(address.error())),
                install};
    }
    const auto connection = machine.buses->connection(*address, bus::HalfWayTo(deadline));
    if (!connection) {
        return {Verdict::wrong,
                fmt::format("The accessibility bus cannot be reached: {}", Words(connection.error())),
                "log in again; at-spi-bus-launcher has to run"};
    }
    const auto applications = bus::AskAndWait(*connection, atspi::RegisteredApplications(), deadline);
    if (!applications) {
        return {Verdict::wrong,
                fmt::format("The accessibility registry cannot be asked: {}", Words(applications.error())),
                kRegistryRemedy};
    }
    return Good(fmt::format("It answers, and knows of {} programs", applications->size()));
}

Finding CheckAccessibilitySwitch(const Machine& machine, bus::Deadline deadline) {
    const auto session = machine.buses->session(deadline);
    if (!session) {
        return NoSessionBus();
    }
    const auto isOn = bus::AskAndWait(*session, atspi::IsEnabled(), deadline);
    if (!isOn) {
        return {Verdict::wrong, fmt::format("It cannot be told: {}", Words(isOn.error())),
                InstallCommand(machine, "at-spi2-core", "at-spi2-core") + ", then log in again"};
    }
    if (*isOn) {
        return Good("It is on");
    }
    return {Verdict::wrong, "It is off, so browsers cannot be read", kSwitchOn,
            [](const Machine& here, bus::Deadline until) {
                const auto connection = here.buses->session(until);
                const auto done = connection ? bus::AskAndWait(*connection, atspi::Enable(), until)
                                             : bus::Result<atspi::Done>(connection.error());
                if (!done) {
                    throw cmn::make_error("Accessibility could not be switched on: ", Words(done.error()));
                }
            }};
}

Finding CheckBrowsers(const Machine& machine, bus::Deadline deadline) {
    Browsers browsers = machine.browsersOfAgent(deadline);
    if (!browsers) {
        browsers = machine.browsersSeen(deadline);
    }
    if (!browsers) {
        return {Verdict::warning, "It cannot be told which browsers are running",
                "mend what is wrong above, then look again"};
    }
    if (browsers->empty()) {
        return NotApplicable("No browser is running");
    }
    std::vector<std::string> texts;
    std::vector<std::string> remedies;
    for (const BrowserState& browser : *browsers) {
        texts.push_back(fmt::format("{} (process {}) {}", browser.name, browser.pid,
                                    browser.isRead ? "is read" : "is not read: " + browser.why));
        if (!browser.isRead) {
            remedies.push_back(RemedyFor(browser));
        }
    }
    return {remedies.empty() ? Verdict::good : Verdict::wrong, fmt::format("{}", fmt::join(texts, "; ")),
            fmt::format("{}", fmt::join(remedies, "; "))};
}

}  // namespace ctl
