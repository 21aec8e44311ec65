#include <fmt/format.h>

#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "AgentCommands.h"
#include "TextTable.h"
#include "buses/Buses.h"
#include "common/json.h"
#include "common/utf8.h"
#include "doctor/Installation.h"
#include "useragent/FileFilters.h"
#include "useragent/FilterRecord.h"
#include "xpccommon/FinderExtensionProtocol.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;
using Records = std::vector<cmn::ScanRecord>;

constexpr const char* kService = cmn::kFinderExtensionXPCMachServiceName;
constexpr std::uint32_t kRoot = 0;

[[noreturn]] void Fail(const std::string& why) {
    throw std::runtime_error(why);
}

void RequireRoot(bus::Connection& system, const std::string& owner, bus::Deadline deadline) {
    const auto user = UserOf(system, owner, deadline);
    if (!user || *user != kRoot) {
        Fail(fmt::format("The service {} is not root's, as RequireRootServices in the settings demands",
                         kService));
    }
}

Records ScanResultOf(const Surroundings& surroundings, const std::string& path) {
    const auto busEnd = bus::Clock::now() + surroundings.patience.bus;
    Buses buses(surroundings.systemBus, surroundings.sessionBus);
    const auto system = buses.system(busEnd);
    if (!system) {
        Fail("There is no system bus to ask: " + Words(system.error()));
    }
    const auto owner = OwnerOf(**system, kService, busEnd + surroundings.patience.bus);
    if (!owner) {
        Fail("The system bus " + Described(owner.error()));
    }
    if (!*owner) {
        Fail(fmt::format("The service {} is not there", kService));
    }
    const auto end = bus::Clock::now() + surroundings.patience.scan;
    if (RequiresRootServices(surroundings.settings())) {
        RequireRoot(**system, **owner, end);
    }
    auto records = AskService<Records>(**system, **owner, PathOf(kService), kService, "GetScanResult", end,
                                       bus::kLargestMessage, path);
    if (!records) {
        Fail(fmt::format("The service {} {}", kService, Described(records.error())));
    }
    return std::move(*records);
}

// As the columns of the properties window.
void WriteTable(const Records& records, const Console& console) {
    using Align = TextTable::Align;
    TextTable table({{"Classifier"}, {"Sensitive"}, {"Count", Align::right}, {"Risk (USD)", Align::right}});
    for (const cmn::ScanRecord& each : records) {
        const useragent::FilterRecord record(each);
        table.add({record.description(useragent::kFilterNameKey),
                   record.boolValue(useragent::kFilterSensitiveTypeKey) ? "yes" : "no",
                   useragent::FilterCount(record), useragent::CostText(useragent::FilterCost(record))});
    }
    table.write(console.out, console.columns);
}

void WriteJson(const std::string& path, const Records& records, const Console& console) {
    rapidjson::StringBuffer buffer;
    cmn::proto::PrettyWriter writer(buffer);
    writer.StartObject();
    writer.Key("path");
    cmn::proto::toJson(writer, path);
    writer.Key("records");
    writer.StartArray();
    for (const cmn::ScanRecord& record : records) {
        writer.StartObject();
        for (const auto& [key, value] : record) {
            writer.Key(key.c_str());
            cmn::proto::toJson(writer, value);
        }
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    console.out << buffer.GetString() << '\n';
}

}  // namespace

int Scan(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const std::string path = std::filesystem::absolute(arguments.operands.front()).string();
    if (!cmn::IsValidUtf8(path)) {
        Fail("The name of the file is not UTF-8, nobody can be asked about it");
    }
    const Records records = ScanResultOf(surroundings, path);
    if (arguments.json) {
        WriteJson(path, records, console);
    } else if (records.empty()) {
        console.out << "Nothing was found in " << cmn::EscapeControls(path) << '\n';
    } else {
        WriteTable(records, console);
    }
    return kAllIsWell;
}

}  // namespace ctl
