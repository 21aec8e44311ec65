#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "LockedFile.h"
#include "common/proto_settings.h"

// What the settings' functions do to a file, with time, file and reading given from outside.
namespace cmn::proto {

using SettingsTime = std::chrono::system_clock::time_point;

// The time of those who wait for a lock.
struct SettingsClock {
    std::function<SettingsTime()> now;
    std::function<void()> pause;  // between two looks at the lock
};
SettingsClock SystemSettingsClock();

// For the threads of this process and for other processes together.
constexpr std::chrono::seconds kSettingsLockTimeout{60};

using ReadSettings = std::function<TSettings(const std::filesystem::path&)>;
TSettings LoadSettingsWith(const std::filesystem::path& path, const ReadSettings& read);

// The writing operations on one settings file. Each holds the file against the threads of this process and
// against other processes, and works on the file that the path leads to when the lock is had.
class SettingsFile {
 public:
    using Open =
        std::function<std::unique_ptr<LockedFile>(const std::filesystem::path&, LockedFile::Opening)>;

    explicit SettingsFile(std::filesystem::path path, SettingsClock clock = SystemSettingsClock(),
                          Open open = OpenLockedFile);

    // The work of SaveSettings and InstanceSettings, which say what is thrown.
    void save(const TSettings& settings) const;
    // The values are escaped for JSON.
    void instance(const std::map<std::string, std::string>& values) const;

 private:
    struct Held;

    bool waitFor(const std::function<bool()>& taken, SettingsTime deadline) const;
    // Without a file when the lock was not to be had in time.
    Held hold(LockedFile::Opening opening) const;

    std::filesystem::path path_;
    SettingsClock clock_;
    Open open_;
};

// The base name of a module as the products' "NativeName" has it: without extension and without ".vshost".
std::string NativeNameOf(const std::filesystem::path& module);

}  // namespace cmn::proto
