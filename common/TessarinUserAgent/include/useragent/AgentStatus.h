#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/json.h"

namespace useragent {

// Not within the status: there it could not be made before the status is complete, which an optional asks
// for.
struct ReportOfAgent {
    std::string browser;
    std::uint64_t secondsAgo = 0;
    std::string address;
};

// How an agent is, as it tells others of the same user: in JSON, with the names of the members as keys. Times
// are whole seconds that have passed. Addresses are empty unless they were asked for.
struct AgentStatus {
    struct Service {
        std::string name;
        bool reached = false;  // it has answered, and the connection has not ended since
    };
    struct Permissions {  // as in the menu
        bool fullDiskAccess = false;
        bool accessibility = false;
        bool finderExtension = false;
    };
    struct Browser {
        std::string name;
        std::int32_t pid = 0;
        // Since the address field of its window of the moment is read; nothing: it is not read.
        std::optional<std::uint64_t> readForSeconds;
        std::string address;
    };
    using Report = ReportOfAgent;

    std::string version;
    std::int32_t pid = 0;
    std::uint64_t runningForSeconds = 0;
    std::string sessionType;  // "x11", "wayland"; empty where the platform has none or it is not known
    std::string icon;         // see `IconPlace`
    std::vector<Service> services;
    Permissions permissions;
    std::vector<Browser> browsers;     // those that are watched
    std::optional<Report> lastReport;  // of an address, to the service; nothing since the start
};

// Where the status item is shown. The texts of the status.
enum class IconPlace {
    none,        // "none": no status area takes it, or it is switched off
    statusArea,  // "status area": of the desktop's panel or menu bar
    window       // "window": in a tray of the window system
};
const char* DescribePlace(IconPlace place);

// Whether nothing needs mending: the services are reached, the permissions granted, the browsers read. An
// icon that is not shown is none of it: there are desktops without a place for it.
bool AllIsWell(const AgentStatus& status);

// Adds what it knows. Any thread.
using StatusSource = std::function<void(AgentStatus&)>;

void RemoveAddresses(AgentStatus& status);

// Members that are missing stay as they are; one of another type throws as the readers of json.h do.
void fromJson(const rapidjson::Value& value, AgentStatus& status);
void toJson(cmn::proto::PrettyWriter& writer, const AgentStatus& status);

}  // namespace useragent
