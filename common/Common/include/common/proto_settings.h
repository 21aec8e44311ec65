#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cmn::proto {

// One entry of the settings' "Products".
struct TSettingsProduct {
    std::string Name;
    std::string Version;
    std::string InstallPath;
    std::string NativeName;  // base name of the product's executable
    std::string LastFailedVersion;

    bool operator==(const TSettingsProduct&) const = default;
};

// The product's shared settings; the JSON keys are the field names. Everything absent from the file is empty,
// 0 or false.
struct TSettings {
    std::string Platform;
    std::string ServerURL;
    std::optional<std::string> UpdaterServerURL;
    std::optional<std::string> APIServerURL;
    std::optional<std::string> APIUpdaterServerURL;
    std::optional<std::string> StateFile;
    std::int32_t UpdaterTimeout = 0;
    std::optional<std::int32_t> RateLimitTimeout;
    std::string UpdaterID;
    std::string DeviceUUID;
    std::string DeviceName;
    std::string InstallationKey;
    std::string UninstallationKey;
    std::optional<std::string> ServerUser;
    std::optional<std::string> ServerPassword;
    std::string InstallationUser;
    std::string LogLevel;
    std::string ScanRoot;
    std::int32_t ScanRootFolderType = 0;
    std::int32_t ScanThreadCount = 0;
    std::int32_t ScanFileMaxSize = 0;
    std::int32_t DelayScanTimeout = 0;
    std::int32_t DelaySendReceive = 0;
    std::optional<std::int32_t> RepeatIterationTimeout;
    std::int32_t PollFiltersTimeout = 0;
    bool DecryptOnly = false;
    std::optional<bool> CheckEncryption;
    bool FileMonitoringEnabled = false;
    bool UrlWatcherEnabled = false;
    bool StatisticsEnabled = false;
    std::int32_t StatisticsFileSize = 0;
    std::int32_t StatisticsSendTimeout = 0;
    std::vector<std::string> StatisticsProcesses;
    std::vector<std::string> SystemProcesses;
    std::optional<std::vector<std::string>> DisabledFolders;
    std::optional<std::string> LastFsStateTag;
    std::vector<TSettingsProduct> Products;
    bool IsDaemon = false;
    std::uint64_t DeviceId = 0;
    bool IsExtensionMenuAvailable = false;
    bool IsExtensionIconsAvailable = false;
    bool AgentIconDisable = false;
    // An administrator's: the agent uses no service that is not root's. Written when it is true only.
    bool RequireRootServices = false;

    bool operator==(const TSettings&) const = default;
};

// Reads one regular file of at most 64 MiB, without its lock. Throws std::runtime_error "Couldn't open
// {path}" with the cause nested inside; a text that is no number in a number's place passes as
// std::invalid_argument or std::out_of_range.
TSettings LoadSettings(const std::filesystem::path& path);
// "settings.json" in the shared folder.
TSettings LoadSettings();

// Writes one file under its inter-process lock, waiting up to 60 seconds for it; throws std::runtime_error
// when that time is over. Other errors, of the lock or of the file, are logged. The file is emptied before
// the lock is asked for. Keys that are the daemon's alone are not written.
void SaveSettings(const std::filesystem::path& path, const TSettings& settings);
void SaveSettings(const TSettings& settings);

// The process's own copy, read from the file when first asked for. All of these may be called from any
// thread.
TSettings GetSettings();
void SetSettings(const TSettings& settings);  // in memory only
// Changes the copy in place, starting from an empty record (the file is not read). Do not call back into this
// API. The copy is as before when the function throws.
void SetSettings(const std::function<void(TSettings&)>& change);
void UpdateSettings(const TSettings& settings);  // in memory and in the file

// Empty unless the setting is 1 or more.
std::optional<std::uint32_t> GetScanThreadCount();

// The running program's base name as the products' "NativeName" has it.
std::string GetCurrentProductNativeName();

// The first product of that name; with an empty name, the running program's own. They throw
// std::runtime_error "Unknown product name -- {}".
TSettingsProduct GetProduct(const TSettings& settings, std::string_view name);
TSettingsProduct GetProduct(std::string_view name);
// These change the copy in memory, not the file.
void SetProductVersion(std::string_view name, std::string_view version);
void SetProductLastFailedVersion(std::string_view name, std::string_view version);

// Fills the placeholders of the settings file after an installation, with the values escaped for JSON. The
// installation path is the file's folder. An empty scan root is the console user's home, an empty device UUID
// a random one. A file that cannot be opened or locked is logged; throws std::runtime_error when it cannot be
// read or written, and "can't get lock" after 60 seconds.
void InstanceSettings(const std::filesystem::path& file, const std::string& installationKey,
                      const std::filesystem::path& scanRoot, const std::string& deviceUuid);
// "settings.json" in the shared folder.
void InstanceSettings(const std::string& installationKey, const std::filesystem::path& scanRoot,
                      const std::string& deviceUuid);

// Puts a fixed set of values into the copy in memory.
void SetDefaultTestSettings(unsigned long long deviceId, const std::filesystem::path& scanRoot);

}  // namespace cmn::proto
