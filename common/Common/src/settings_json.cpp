#include "common/settings_json.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "common/json.h"
#include "common/proto_settings.h"

namespace cmn::proto {

namespace {

template <class Record, class Value>
struct Field {
    std::string_view key;
    Value Record::*member;
};

template <class Record, class Value>
constexpr Field<Record, Value> MakeField(std::string_view key, Value Record::*member) {
    return {key, member};
}

#define PRODUCT_FIELD(name) MakeField(#name, &TSettingsProduct::name)
#define SETTINGS_FIELD(name) MakeField(#name, &TSettings::name)

constexpr auto kProductFields =
    std::make_tuple(PRODUCT_FIELD(Name), PRODUCT_FIELD(Version), PRODUCT_FIELD(InstallPath),
                    PRODUCT_FIELD(NativeName), PRODUCT_FIELD(LastFailedVersion));

constexpr auto kSettingsFields = std::make_tuple(
    SETTINGS_FIELD(Platform), SETTINGS_FIELD(ServerURL), SETTINGS_FIELD(UpdaterServerURL),
    SETTINGS_FIELD(APIServerURL), SETTINGS_FIELD(APIUpdaterServerURL), SETTINGS_FIELD(StateFile),
    SETTINGS_FIELD(UpdaterTimeout), SETTINGS_FIELD(RateLimitTimeout), SETTINGS_FIELD(UpdaterID),
    SETTINGS_FIELD(DeviceUUID), SETTINGS_FIELD(DeviceName), SETTINGS_FIELD(InstallationKey),
    SETTINGS_FIELD(UninstallationKey), SETTINGS_FIELD(ServerUser), SETTINGS_FIELD(ServerPassword),
    SETTINGS_FIELD(InstallationUser), SETTINGS_FIELD(LogLevel), SETTINGS_FIELD(ScanRoot),
    SETTINGS_FIELD(ScanRootFolderType), SETTINGS_FIELD(ScanThreadCount), SETTINGS_FIELD(ScanFileMaxSize),
    SETTINGS_FIELD(DelayScanTimeout), SETTINGS_FIELD(DelaySendReceive),
    SETTINGS_FIELD(RepeatIterationTimeout), SETTINGS_FIELD(PollFiltersTimeout), SETTINGS_FIELD(DecryptOnly),
    SETTINGS_FIELD(CheckEncryption), SETTINGS_FIELD(FileMonitoringEnabled), SETTINGS_FIELD(UrlWatcherEnabled),
    SETTINGS_FIELD(StatisticsEnabled), SETTINGS_FIELD(StatisticsFileSize),
    SETTINGS_FIELD(StatisticsSendTimeout), SETTINGS_FIELD(StatisticsProcesses),
    SETTINGS_FIELD(SystemProcesses), SETTINGS_FIELD(DisabledFolders), SETTINGS_FIELD(LastFsStateTag),
    SETTINGS_FIELD(Products), SETTINGS_FIELD(IsDaemon), SETTINGS_FIELD(DeviceId),
    SETTINGS_FIELD(IsExtensionMenuAvailable), SETTINGS_FIELD(IsExtensionIconsAvailable),
    SETTINGS_FIELD(AgentIconDisable), SETTINGS_FIELD(RequireRootServices));

#undef SETTINGS_FIELD
#undef PRODUCT_FIELD

// Read when present, but a save drops them from the file: they are the daemon's alone, among them
// credentials.
constexpr std::array<std::string_view, 14> kNeverWritten{"DeviceName",
                                                         "DeviceId",
                                                         "DisabledFolders",
                                                         "IsExtensionMenuAvailable",
                                                         "IsExtensionIconsAvailable",
                                                         "AgentIconDisable",
                                                         "LastFsStateTag",
                                                         "PollFiltersTimeout",
                                                         "RateLimitTimeout",
                                                         "RepeatIterationTimeout",
                                                         "ScanRootFolderType",
                                                         "ServerUser",
                                                         "ServerPassword",
                                                         "StateFile"};

// Written when somebody has set it only: the files of those who have not stay as they are.
constexpr std::string_view kWrittenWhenSet = "RequireRootServices";

template <class Fields, std::size_t... I>
constexpr auto KeysOf(const Fields& fields, std::index_sequence<I...>) {
    return std::array<std::string_view, sizeof...(I)>{std::get<I>(fields).key...};
}

template <class Fields>
constexpr auto KeysOf(const Fields& fields) {
    return KeysOf(fields, std::make_index_sequence<std::tuple_size_v<Fields>>());
}

// Goes through the object once, whatever its size; of equal keys the first counts. Members usually stand in
// the order of the fields, so the search for one begins behind the one found before.
template <class Fields, class Record>
void ReadFields(const rapidjson::Value& object, const Fields& fields, Record& record) {
    const auto keys = KeysOf(fields);
    std::array<const rapidjson::Value*, std::tuple_size_v<Fields>> found{};
    std::size_t expected = 0;
    for (const auto& member : object.GetObject()) {
        const std::string_view name(member.name.GetString(), member.name.GetStringLength());
        for (std::size_t tried = 0; tried < keys.size(); ++tried) {
            const auto index = (expected + tried) % keys.size();
            if (keys[index] != name)
                continue;
            if (found[index] == nullptr)
                found[index] = &member.value;
            expected = index + 1;
            break;
        }
    }
    std::size_t next = 0;
    std::apply(
        [&](const auto&... field) {
            const auto read = [&](const auto& one) {
                if (const auto* value = found[next++])
                    fromJson(*value, record.*one.member);
            };
            (read(field), ...);
        },
        fields);
}

template <class Fields, class Record>
void WriteFields(PrettyWriter& writer, const Fields& fields, const Record& record) {
    writer.StartObject();
    const auto write = [&](const auto& field) {
        if (std::find(kNeverWritten.begin(), kNeverWritten.end(), field.key) != kNeverWritten.end())
            return;
        const auto& value = record.*field.member;
        if (field.key == kWrittenWhenSet && value == std::decay_t<decltype(value)>())
            return;
        writer.Key(field.key.data(), static_cast<rapidjson::SizeType>(field.key.size()));
        toJson(writer, value);
    };
    std::apply([&](const auto&... field) { (write(field), ...); }, fields);
    writer.EndObject();
}

}  // namespace

void fromJson(const rapidjson::Value& value, TSettingsProduct& product) {
    ReadFields(value, kProductFields, product);
}

void fromJson(const rapidjson::Value& value, TSettings& settings) {
    ReadFields(value, kSettingsFields, settings);
}

void toJson(PrettyWriter& writer, const TSettingsProduct& product) {
    WriteFields(writer, kProductFields, product);
}

void toJson(PrettyWriter& writer, const TSettings& settings) {
    WriteFields(writer, kSettingsFields, settings);
}

}  // namespace cmn::proto
