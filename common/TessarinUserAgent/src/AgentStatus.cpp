#include "useragent/AgentStatus.h"

#include <algorithm>
#include <tuple>

namespace useragent {

namespace {

using cmn::proto::PrettyWriter;

template <typename Record, typename Value>
struct Member {
    const char* key;
    Value Record::*value;
};
template <typename Record, typename Value>
Member(const char*, Value Record::*) -> Member<Record, Value>;

// The members of each record, once for both directions.
constexpr std::tuple kServiceMembers{Member{"name", &AgentStatus::Service::name},
                                     Member{"reached", &AgentStatus::Service::reached}};
constexpr std::tuple kPermissionMembers{
    Member{"fullDiskAccess", &AgentStatus::Permissions::fullDiskAccess},
    Member{"accessibility", &AgentStatus::Permissions::accessibility},
    Member{"finderExtension", &AgentStatus::Permissions::finderExtension}};
constexpr std::tuple kBrowserMembers{Member{"name", &AgentStatus::Browser::name},
                                     Member{"pid", &AgentStatus::Browser::pid},
                                     Member{"readForSeconds", &AgentStatus::Browser::readForSeconds},
                                     Member{"address", &AgentStatus::Browser::address}};
constexpr std::tuple kReportMembers{Member{"browser", &AgentStatus::Report::browser},
                                    Member{"secondsAgo", &AgentStatus::Report::secondsAgo},
                                    Member{"address", &AgentStatus::Report::address}};
constexpr std::tuple kStatusMembers{Member{"version", &AgentStatus::version},
                                    Member{"pid", &AgentStatus::pid},
                                    Member{"runningForSeconds", &AgentStatus::runningForSeconds},
                                    Member{"sessionType", &AgentStatus::sessionType},
                                    Member{"icon", &AgentStatus::icon},
                                    Member{"services", &AgentStatus::services},
                                    Member{"permissions", &AgentStatus::permissions},
                                    Member{"browsers", &AgentStatus::browsers},
                                    Member{"lastReport", &AgentStatus::lastReport}};

template <typename Record, typename Members>
void ReadMembers(const rapidjson::Value& value, Record& record, const Members& members) {
    using cmn::proto::fromJson;
    const auto read = [&](const auto& member) {
        const auto found = value.FindMember(member.key);
        if (found != value.MemberEnd()) {
            fromJson(found->value, record.*member.value);
        }
    };
    std::apply([&](const auto&... member) { (read(member), ...); }, members);
}

template <typename Record, typename Members>
void WriteMembers(PrettyWriter& writer, const Record& record, const Members& members) {
    using cmn::proto::toJson;
    const auto write = [&](const auto& member) {
        writer.Key(member.key);
        toJson(writer, record.*member.value);
    };
    writer.StartObject();
    std::apply([&](const auto&... member) { (write(member), ...); }, members);
    writer.EndObject();
}

}  // namespace

static void fromJson(const rapidjson::Value& value, AgentStatus::Service& record) {
    ReadMembers(value, record, kServiceMembers);
}
static void toJson(PrettyWriter& writer, const AgentStatus::Service& record) {
    WriteMembers(writer, record, kServiceMembers);
}
static void fromJson(const rapidjson::Value& value, AgentStatus::Permissions& record) {
    ReadMembers(value, record, kPermissionMembers);
}
static void toJson(PrettyWriter& writer, const AgentStatus::Permissions& record) {
    WriteMembers(writer, record, kPermissionMembers);
}
static void fromJson(const rapidjson::Value& value, AgentStatus::Browser& record) {
    ReadMembers(value, record, kBrowserMembers);
}
static void toJson(PrettyWriter& writer, const AgentStatus::Browser& record) {
    WriteMembers(writer, record, kBrowserMembers);
}
static void fromJson(const rapidjson::Value& value, AgentStatus::Report& record) {
    ReadMembers(value, record, kReportMembers);
}
static void toJson(PrettyWriter& writer, const AgentStatus::Report& record) {
    WriteMembers(writer, record, kReportMembers);
}

void fromJson(const rapidjson::Value& value, AgentStatus& status) {
    ReadMembers(value, status, kStatusMembers);
}

void toJson(PrettyWriter& writer, const AgentStatus& status) {
    WriteMembers(writer, status, kStatusMembers);
}

const char* DescribePlace(IconPlace place) {
    switch (place) {
        case IconPlace::statusArea:
            return "status area";
        case IconPlace::window:
            return "window";
        case IconPlace::none:
            break;
    }
    return "none";
}

bool AllIsWell(const AgentStatus& status) {
    return status.permissions.fullDiskAccess && status.permissions.accessibility &&
           status.permissions.finderExtension &&
           std::all_of(status.services.begin(), status.services.end(),
                       [](const AgentStatus::Service& service) { return service.reached; }) &&
           std::all_of(
               status.browsers.begin(), status.browsers.end(),
               [](const AgentStatus::Browser& browser) { return browser.readForSeconds.has_value(); });
}

void RemoveAddresses(AgentStatus& status) {
    for (AgentStatus::Browser& browser : status.browsers) {
        browser.address.clear();
    }
    if (status.lastReport) {
        status.lastReport->address.clear();
    }
}

}  // namespace useragent
