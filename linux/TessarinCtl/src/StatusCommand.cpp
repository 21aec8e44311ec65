#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <exception>
#include <optional>
#include <string>
#include <variant>

#include "AgentCommands.h"
#include "TextTable.h"
#include "buses/Buses.h"
#include "common/SystemUtils.h"
#include "useragent/AgentNames.h"
#include "useragent/AgentStatus.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;
using useragent::AgentStatus;

// The status, or why there is none.
using Asked = std::variant<AgentStatus, std::string>;

Asked AskAgent(const Surroundings& surroundings, bool withAddresses) {
    const bus::Deadline end = bus::Clock::now() + surroundings.patience.status;
    Buses buses(surroundings.systemBus, surroundings.sessionBus);
    // The library takes up to a second more for a bus that hangs.
    const auto session = buses.session(bus::Clock::now() + surroundings.patience.status / 2);
    if (!session) {
        return "There is no session bus to ask: " + Words(session.error());
    }
    const auto owner = OwnerOf(**session, useragent::kApplicationName, end);
    if (!owner) {
        return "The session bus " + Described(owner.error());
    }
    if (!*owner) {
        return std::string("No agent runs in this session");
    }
    const auto answer =
        AskService<std::string>(**session, **owner, useragent::kApplicationPath, useragent::kStatusInterface,
                                useragent::kStatusMethod, end, bus::kUsuallyRead, withAddresses);
    if (!answer) {
        return "The agent " + Described(answer.error());
    }
    try {
        return cmn::proto::JsonToObjectImpl<AgentStatus>(*answer);
    } catch (const std::exception&) {
        return std::string("The agent's answer cannot be understood");
    }
}

std::string Ago(std::uint64_t seconds) {
    constexpr std::uint64_t kMinute = 60;
    constexpr std::uint64_t kHour = 60 * kMinute;
    constexpr std::uint64_t kDay = 24 * kHour;
    if (seconds < 2 * kMinute) {
        return fmt::format("{} s", seconds);
    }
    if (seconds < 2 * kHour) {
        return fmt::format("{} min", seconds / kMinute);
    }
    return seconds < 2 * kDay ? fmt::format("{} h", seconds / kHour) : fmt::format("{} days", seconds / kDay);
}

// When it was so many seconds ago; empty for a time that no calendar has.
std::string TimeBefore(std::uint64_t seconds) {
    const auto time = cmn::GetLocalTime(std::time(nullptr) - static_cast<std::time_t>(seconds));
    return time ? fmt::format(", since {:%Y-%m-%d %H:%M:%S}", *time) : std::string();
}

std::string WithAddress(std::string text, const std::string& address) {
    return address.empty() ? text : std::move(text) + ": " + address;
}

void WriteText(const AgentStatus& status, const Console& console) {
    TextTable table({{""}, {""}});
    const auto onOrOff = [](bool on) { return on ? "On" : "Off"; };
    table.add({"Agent", fmt::format("running, version {}, process {}{} ({})", status.version, status.pid,
                                    TimeBefore(status.runningForSeconds), Ago(status.runningForSeconds))});
    for (const AgentStatus::Service& service : status.services) {
        table.add({"Service " + service.name, service.reached ? "reached" : "not reached"});
    }
    table.add({"Full disk access", onOrOff(status.permissions.fullDiskAccess)});
    table.add({"Accessibility", onOrOff(status.permissions.accessibility)});
    table.add({"Finder Extension", onOrOff(status.permissions.finderExtension)});
    for (const AgentStatus::Browser& browser : status.browsers) {
        const std::string read = browser.readForSeconds
                                     ? fmt::format("read for {}", Ago(*browser.readForSeconds))
                                     : std::string("not read");
        table.add({"Browser " + browser.name,
                   WithAddress(fmt::format("process {}, address {}", browser.pid, read), browser.address)});
    }
    if (status.browsers.empty()) {
        table.add({"Browsers", "none"});
    }
    table.add({"Last report", status.lastReport ? WithAddress(fmt::format("{} ago, from {}",
                                                                          Ago(status.lastReport->secondsAgo),
                                                                          status.lastReport->browser),
                                                              status.lastReport->address)
                                                : "none since the start"});
    table.add({"Icon", status.icon == useragent::DescribePlace(useragent::IconPlace::none)
                           ? "not shown"
                           : "shown, " + status.icon});
    table.add({"Session", status.sessionType.empty() ? "not known" : status.sessionType});
    table.write(console.out, 0);
}

void WriteJson(const Asked& asked, bool well, const Console& console) {
    rapidjson::StringBuffer buffer;
    cmn::proto::PrettyWriter writer(buffer);
    writer.StartObject();
    writer.Key("allIsWell");
    writer.Bool(well);
    writer.Key("agent");
    if (const auto* status = std::get_if<AgentStatus>(&asked)) {
        toJson(writer, *status);
    } else {
        writer.Null();
        writer.Key("failure");
        cmn::proto::toJson(writer, std::get<std::string>(asked));
    }
    writer.EndObject();
    console.out << buffer.GetString() << '\n';
}

}  // namespace

int Status(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const Asked asked = AskAgent(surroundings, arguments.has("--addresses"));
    const auto* const status = std::get_if<AgentStatus>(&asked);
    const bool well = status != nullptr && AllIsWell(*status);
    if (arguments.json) {
        WriteJson(asked, well, console);
    } else if (status != nullptr) {
        WriteText(*status, console);
    } else {
        console.err << std::get<std::string>(asked) << '\n';
    }
    return well ? kAllIsWell : kSomethingIsWrong;
}

}  // namespace ctl
