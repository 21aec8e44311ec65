#include "common/proto_settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "common/SystemUtils.h"
#include "common/exceptions.h"
#include "common/settings_json.h"
#include "common/stamps.h"
#include "settings_file.h"

namespace cmn::proto {

namespace {

std::mutex g_settingsMutex;  // guards g_settings
std::optional<TSettings> g_settings;

std::filesystem::path SharedSettingsFile() {
    return std::filesystem::path(GetSharedPath()) / "settings.json";
}

// Call with g_settingsMutex held. A failed load leaves the copy empty, so that the next call tries again.
TSettings& LoadedSettings() {
    if (!g_settings)
        g_settings = LoadSettings();
    return *g_settings;
}

TSettingsProduct& FindProduct(TSettings& settings, std::string_view name) {
    const bool own = name.empty();
    const auto wanted = own ? GetCurrentProductNativeName() : std::string(name);
    const auto found = std::find_if(
        settings.Products.begin(), settings.Products.end(),
        [&](const TSettingsProduct& product) { return (own ? product.NativeName : product.Name) == wanted; });
    if (found == settings.Products.end())
        throw_with_trace(std::runtime_error(fmt::format("Unknown product name -- {}", wanted)));
    return *found;
}

}  // namespace

TSettings LoadSettings(const std::filesystem::path& path) {
    return LoadSettingsWith(path, [](const std::filesystem::path& file) {
        return JsonToObjectImpl<TSettings>(ReadRegularFile(file, kMaxJsonFile));
    });
}

TSettings LoadSettings() {
    return LoadSettings(SharedSettingsFile());
}

void SaveSettings(const std::filesystem::path& path, const TSettings& settings) {
    SettingsFile(path).save(settings);
}

void SaveSettings(const TSettings& settings) {
    SaveSettings(SharedSettingsFile(), settings);
}

TSettings GetSettings() {
    const std::lock_guard lock(g_settingsMutex);
    return LoadedSettings();
}

void SetSettings(const TSettings& settings) {
    const std::lock_guard lock(g_settingsMutex);
    g_settings = settings;
}

void SetSettings(const std::function<void(TSettings&)>& change) {
    const std::lock_guard lock(g_settingsMutex);
    if (!g_settings)
        g_settings.emplace();  // not from the file, on purpose
    auto before = *g_settings;
    try {
        change(*g_settings);
    } catch (...) {
        *g_settings = std::move(before);
        throw;
    }
}

void UpdateSettings(const TSettings& settings) {
    SetSettings(settings);
    SaveSettings(settings);
}

std::optional<std::uint32_t> GetScanThreadCount() {
    const auto count = GetSettings().ScanThreadCount;
    return count >= 1 ? std::optional(static_cast<std::uint32_t>(count)) : std::nullopt;
}

std::string GetCurrentProductNativeName() {
    return NativeNameOf(GetModuleName());
}

TSettingsProduct GetProduct(const TSettings& settings, std::string_view name) {
    auto copy = settings;
    return FindProduct(copy, name);
}

TSettingsProduct GetProduct(std::string_view name) {
    return GetProduct(GetSettings(), name);
}

void SetProductVersion(std::string_view name, std::string_view version) {
    const std::lock_guard lock(g_settingsMutex);
    FindProduct(LoadedSettings(), name).Version = version;
}

void SetProductLastFailedVersion(std::string_view name, std::string_view version) {
    const std::lock_guard lock(g_settingsMutex);
    FindProduct(LoadedSettings(), name).LastFailedVersion = version;
}

void InstanceSettings(const std::string& installationKey, const std::filesystem::path& scanRoot,
                      const std::string& deviceUuid) {
    InstanceSettings(SharedSettingsFile(), installationKey, scanRoot, deviceUuid);
}

void InstanceSettings(const std::filesystem::path& file, const std::string& installationKey,
                      const std::filesystem::path& scanRoot, const std::string& deviceUuid) {
    const auto root = scanRoot.empty() ? GetUsersRoot() + "/" + GetCurrentUserName() : scanRoot.string();
    SettingsFile(file).instance({{"${INST_KEY}", installationKey},
                                 {"${DEV_UUID}", deviceUuid.empty() ? MakeUUID() : deviceUuid},
                                 {"${INST_PATH}", std::filesystem::absolute(file).parent_path().string()},
                                 {"${SCAN_ROOT}", root}});
}

void SetDefaultTestSettings(unsigned long long deviceId, const std::filesystem::path& scanRoot) {
    SetSettings([&](TSettings& settings) {
        settings.Platform = "test";
        settings.ServerURL = "https://localhost";
        settings.DeviceUUID = "00000000-0000-4000-8000-000000000000";
        settings.DeviceName = "test device";
        settings.DeviceId = deviceId;
        settings.LogLevel = "Trace";
        settings.ScanRoot = scanRoot.string();
        settings.ScanThreadCount = 1;
    });
}

}  // namespace cmn::proto
