#include <gmock/gmock.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Failures.h"
#include "common/settings_json.h"

namespace {

using cmn::proto::JsonToObjectImpl;
using cmn::proto::ObjectToJson;
using cmn::proto::TSettings;
using cmn::proto::TSettingsProduct;
using fake::FailureOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

TSettings ReadSettings(const std::string& json) {
    return JsonToObjectImpl<TSettings>(json);
}

// Every field set, none to its default.
TSettings Full() {
    TSettings s;
    s.Platform = "linux";
    s.ServerURL = "https://server";
    s.UpdaterServerURL = "https://updater";
    s.APIServerURL = "https://api";
    s.APIUpdaterServerURL = "https://apiupdater";
    s.StateFile = "state";
    s.UpdaterTimeout = 1;
    s.RateLimitTimeout = 2;
    s.UpdaterID = "updater";
    s.DeviceUUID = "uuid";
    s.DeviceName = "device";
    s.InstallationKey = "key";
    s.UninstallationKey = "unkey";
    s.ServerUser = "user";
    s.ServerPassword = "password";
    s.InstallationUser = "installer";
    s.LogLevel = "Debug";
    s.ScanRoot = "/home/user";
    s.ScanRootFolderType = 3;
    s.ScanThreadCount = 4;
    s.ScanFileMaxSize = 5;
    s.DelayScanTimeout = 6;
    s.DelaySendReceive = 7;
    s.RepeatIterationTimeout = 8;
    s.PollFiltersTimeout = 9;
    s.DecryptOnly = true;
    s.CheckEncryption = true;
    s.FileMonitoringEnabled = true;
    s.UrlWatcherEnabled = true;
    s.StatisticsEnabled = true;
    s.StatisticsFileSize = 10;
    s.StatisticsSendTimeout = 11;
    s.StatisticsProcesses = {"a", "b"};
    s.SystemProcesses = {"c"};
    s.DisabledFolders = {"d"};
    s.LastFsStateTag = "tag";
    s.Products = {{"Name", "Version", "Path", "Native", "Failed"}};
    s.IsDaemon = true;
    s.DeviceId = 12;
    s.IsExtensionMenuAvailable = true;
    s.IsExtensionIconsAvailable = true;
    s.AgentIconDisable = true;
    s.RequireRootServices = true;
    return s;
}

constexpr auto kFullJson = R"({
    "Platform": "linux", "ServerURL": "https://server", "UpdaterServerURL": "https://updater",
    "APIServerURL": "https://api", "APIUpdaterServerURL": "https://apiupdater", "StateFile": "state",
    "UpdaterTimeout": 1, "RateLimitTimeout": 2, "UpdaterID": "updater", "DeviceUUID": "uuid",
    "DeviceName": "device", "InstallationKey": "key", "UninstallationKey": "unkey", "ServerUser": "user",
    "ServerPassword": "password", "InstallationUser": "installer", "LogLevel": "Debug",
    "ScanRoot": "/home/user", "ScanRootFolderType": 3, "ScanThreadCount": 4, "ScanFileMaxSize": 5,
    "DelayScanTimeout": 6, "DelaySendReceive": 7, "RepeatIterationTimeout": 8, "PollFiltersTimeout": 9,
    "DecryptOnly": true, "CheckEncryption": true, "FileMonitoringEnabled": true, "UrlWatcherEnabled": true,
    "StatisticsEnabled": true, "StatisticsFileSize": 10, "StatisticsSendTimeout": 11,
    "StatisticsProcesses": ["a", "b"], "SystemProcesses": ["c"], "DisabledFolders": ["d"],
    "LastFsStateTag": "tag",
    "Products": [{"Name": "Name", "Version": "Version", "InstallPath": "Path", "NativeName": "Native",
                  "LastFailedVersion": "Failed"}],
    "IsDaemon": true, "DeviceId": 12, "IsExtensionMenuAvailable": true, "IsExtensionIconsAvailable": true,
    "AgentIconDisable": true, "RequireRootServices": true
})";

// The keys in the order of the record, and how a value of each may look that is of none of its types.
struct Key {
    const char* name;
    const char* wrongValue;  // nullptr: every value is taken
    bool written;
};

constexpr auto kNumber = nullptr;
constexpr auto kText = "1";
constexpr auto kBool = "[]";

const std::vector<Key>& Keys() {
    static const std::vector<Key> keys{
        {"Platform", kText, true},
        {"ServerURL", kText, true},
        {"UpdaterServerURL", kText, true},
        {"APIServerURL", kText, true},
        {"APIUpdaterServerURL", kText, true},
        {"StateFile", kText, false},
        {"UpdaterTimeout", kNumber, true},
        {"RateLimitTimeout", kNumber, false},
        {"UpdaterID", kText, true},
        {"DeviceUUID", kText, true},
        {"DeviceName", kText, false},
        {"InstallationKey", kText, true},
        {"UninstallationKey", kText, true},
        {"ServerUser", kText, false},
        {"ServerPassword", kText, false},
        {"InstallationUser", kText, true},
        {"LogLevel", kText, true},
        {"ScanRoot", kText, true},
        {"ScanRootFolderType", kNumber, false},
        {"ScanThreadCount", kNumber, true},
        {"ScanFileMaxSize", kNumber, true},
        {"DelayScanTimeout", kNumber, true},
        {"DelaySendReceive", kNumber, true},
        {"RepeatIterationTimeout", kNumber, false},
        {"PollFiltersTimeout", kNumber, false},
        {"DecryptOnly", kBool, true},
        {"CheckEncryption", kBool, true},
        {"FileMonitoringEnabled", kBool, true},
        {"UrlWatcherEnabled", kBool, true},
        {"StatisticsEnabled", kBool, true},
        {"StatisticsFileSize", kNumber, true},
        {"StatisticsSendTimeout", kNumber, true},
        {"StatisticsProcesses", "[1]", true},
        {"SystemProcesses", "[1]", true},
        {"DisabledFolders", "\"a\"", false},
        {"LastFsStateTag", kText, false},
        {"Products", "{}", true},
        {"IsDaemon", kBool, true},
        {"DeviceId", kNumber, false},
        {"IsExtensionMenuAvailable", kBool, false},
        {"IsExtensionIconsAvailable", kBool, false},
        {"AgentIconDisable", kBool, false},
        {"RequireRootServices", kBool, true},
    };
    return keys;
}

std::vector<std::string> WrittenKeys(const TSettings& settings) {
    rapidjson::Document document;
    document.Parse(ObjectToJson(settings).c_str());
    std::vector<std::string> keys;
    for (const auto& member : std::as_const(document).GetObject())
        keys.emplace_back(member.name.GetString());
    return keys;
}

TEST(SettingsJsonTest, EmptyObjectIsAllDefaults) {
    const auto settings = ReadSettings("{}");
    EXPECT_EQ(settings, TSettings());
    EXPECT_EQ(settings.UpdaterServerURL, std::nullopt);
    EXPECT_EQ(settings.ScanThreadCount, 0);
    EXPECT_THAT(settings.Products, IsEmpty());
}

TEST(SettingsJsonTest, ReadsEveryKey) {
    EXPECT_EQ(ReadSettings(kFullJson), Full());
}

TEST(SettingsJsonTest, ReadsKeysInAnyOrder) {
    rapidjson::Document document;
    document.Parse(kFullJson);
    rapidjson::Document reversed(rapidjson::kObjectType);
    for (auto key = Keys().rbegin(); key != Keys().rend(); ++key)
        reversed.AddMember(rapidjson::StringRef(key->name), document[key->name], reversed.GetAllocator());
    TSettings settings;
    fromJson(reversed, settings);
    EXPECT_EQ(settings, Full());
}

TEST(SettingsJsonTest, EachKeyReadsIntoItsOwnFieldAlone) {
    rapidjson::Document document;
    document.Parse(kFullJson);
    ASSERT_EQ(document.MemberCount(), Keys().size());
    std::set<std::string> outcomes;
    for (const auto& key : Keys()) {
        rapidjson::Document one(rapidjson::kObjectType);
        one.AddMember(rapidjson::StringRef(key.name), document[key.name], one.GetAllocator());
        TSettings settings;
        fromJson(one, settings);
        EXPECT_NE(settings, TSettings()) << key.name;
        if (key.written)
            outcomes.insert(ObjectToJson(settings));
    }
    EXPECT_EQ(outcomes.size(), 29U);
}

TEST(SettingsJsonTest, PassesOverUnknownKeysAndOtherCases) {
    EXPECT_EQ(ReadSettings(R"({"Unknown": {"a": [1]}, "platform": "x", "": 1, "Platform ": 2})"),
              TSettings());
}

TEST(SettingsJsonTest, FirstOfEqualKeysCounts) {
    EXPECT_EQ(ReadSettings(R"({"LogLevel": "Trace", "LogLevel": "Error"})").LogLevel, "Trace");
    EXPECT_EQ(ReadSettings(R"({"LogLevel": "Trace", "LogLevel": 1})").LogLevel, "Trace");
}

TEST(SettingsJsonTest, ReportsAWrongTypeInEveryField) {
    for (const auto& key : Keys()) {
        const auto json = [&](const std::string& value) {
            return "{\"" + std::string(key.name) + "\": " + value + "}";
        };
        if (key.wrongValue == nullptr) {
            EXPECT_EQ(ReadSettings(json("[]")), ReadSettings(json("0"))) << key.name;
            EXPECT_THROW(ReadSettings(json("\"abc\"")), std::invalid_argument) << key.name;
        } else {
            EXPECT_THROW(ReadSettings(json(key.wrongValue)), std::runtime_error) << key.name;
        }
        if (std::string(key.name) != "Products") {
            EXPECT_NO_THROW(ReadSettings(json("null"))) << key.name;
        }
    }
}

TEST(SettingsJsonTest, ReportsTheWrongFieldThatComesFirstInTheRecord) {
    // The bool's own error, although the text's wrong type stands before it in the file.
    EXPECT_EQ(FailureOf([] { ReadSettings(R"({"LastFsStateTag": 1, "DecryptOnly": 0.5})"); }),
              "Unexpected type for bool value");
}

TEST(SettingsJsonTest, RejectsWhatIsNoObject) {
    for (const auto* json : {"[]", "null", "1", "\"a\"", "true"})
        EXPECT_EQ(FailureOf([&] { ReadSettings(json); }), "JsonToObjectImpl") << json;
    for (const auto* json : {"[1]", "[null]", "[[]]"}) {
        EXPECT_EQ(FailureOf([&] { ReadSettings("{\"Products\": " + std::string(json) + "}"); }),
                  "JsonToObjectImpl")
            << json;
    }
}

TEST(SettingsJsonTest, ThreadCountAsAStringIsANumber) {
    EXPECT_EQ(ReadSettings(R"({"ScanThreadCount": "4"})").ScanThreadCount, 4);
}

TEST(SettingsJsonTest, ProcessesAsOneStringAreAListAndWrittenAsAnArray) {
    const auto settings = ReadSettings(R"({"StatisticsProcesses": "a;b", "SystemProcesses": ""})");
    EXPECT_THAT(settings.StatisticsProcesses, ElementsAre("a", "b"));
    EXPECT_THAT(settings.SystemProcesses, ElementsAre(""));
    EXPECT_THAT(ObjectToJson(settings), HasSubstr(R"(
    "StatisticsProcesses": [
        "a",
        "b"
    ],
    "SystemProcesses": [
        ""
    ],
)"));
}

TEST(SettingsJsonTest, WritesTheKeysInTheOrderOfTheRecordWithoutTheDaemonsOwn) {
    std::vector<std::string> expected;
    for (const auto& key : Keys()) {
        if (key.written)
            expected.emplace_back(key.name);
    }
    EXPECT_EQ(expected.size(), 29U);
    EXPECT_THAT(WrittenKeys(Full()), ElementsAreArray(expected));
    ASSERT_EQ(expected.back(), "RequireRootServices");
    expected.pop_back();  // only who has set it finds it in the file
    EXPECT_THAT(WrittenKeys(TSettings()), ElementsAreArray(expected));
}

TEST(SettingsJsonTest, NeverWritesTheFourteenKeysOfTheDaemon) {
    const auto keys = WrittenKeys(Full());
    for (const auto* name : {"DeviceName", "DeviceId", "DisabledFolders", "IsExtensionMenuAvailable",
                             "IsExtensionIconsAvailable", "AgentIconDisable", "LastFsStateTag",
                             "PollFiltersTimeout", "RateLimitTimeout", "RepeatIterationTimeout",
                             "ScanRootFolderType", "ServerUser", "ServerPassword", "StateFile"})
        EXPECT_THAT(keys, testing::Not(testing::Contains(name)));
    EXPECT_THAT(ObjectToJson(Full()), testing::Not(HasSubstr("password")));
}

TEST(SettingsJsonTest, WritesTheDefaultsWithFourBlanksAndNullsForEmptyOptionals) {
    EXPECT_EQ(ObjectToJson(TSettings()), R"({
    "Platform": "",
    "ServerURL": "",
    "UpdaterServerURL": null,
    "APIServerURL": null,
    "APIUpdaterServerURL": null,
    "UpdaterTimeout": 0,
    "UpdaterID": "",
    "DeviceUUID": "",
    "InstallationKey": "",
    "UninstallationKey": "",
    "InstallationUser": "",
    "LogLevel": "",
    "ScanRoot": "",
    "ScanThreadCount": 0,
    "ScanFileMaxSize": 0,
    "DelayScanTimeout": 0,
    "DelaySendReceive": 0,
    "DecryptOnly": false,
    "CheckEncryption": null,
    "FileMonitoringEnabled": false,
    "UrlWatcherEnabled": false,
    "StatisticsEnabled": false,
    "StatisticsFileSize": 0,
    "StatisticsSendTimeout": 0,
    "StatisticsProcesses": [],
    "SystemProcesses": [],
    "Products": [],
    "IsDaemon": false
})");
}

TEST(SettingsJsonTest, WritesProductsWithTheirFiveKeysInOrder) {
    EXPECT_EQ(ObjectToJson(TSettingsProduct{"N", "V", "P", "B", "F"}), R"({
    "Name": "N",
    "Version": "V",
    "InstallPath": "P",
    "NativeName": "B",
    "LastFailedVersion": "F"
})");
}

TEST(SettingsJsonTest, ReadsBackWhatItWrites) {
    auto expected = Full();
    expected.StateFile.reset();
    expected.RateLimitTimeout.reset();
    expected.DeviceName.clear();
    expected.ServerUser.reset();
    expected.ServerPassword.reset();
    expected.ScanRootFolderType = 0;
    expected.RepeatIterationTimeout.reset();
    expected.PollFiltersTimeout = 0;
    expected.DisabledFolders.reset();
    expected.LastFsStateTag.reset();
    expected.DeviceId = 0;
    expected.IsExtensionMenuAvailable = false;
    expected.IsExtensionIconsAvailable = false;
    expected.AgentIconDisable = false;
    EXPECT_EQ(ReadSettings(ObjectToJson(Full())), expected);
    EXPECT_EQ(ReadSettings(ObjectToJson(TSettings())), TSettings());
}

}  // namespace
