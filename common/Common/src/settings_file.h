#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "common/proto_settings.h"

// What the settings' functions do to a file, with the lock and the reading given from outside.
namespace cmn::proto {

using SettingsTime = std::chrono::system_clock::time_point;
using SettingsClock = std::function<SettingsTime()>;
SettingsTime SettingsNow();

// The inter-process lock of one existing file, given up by the destructor.
class SettingsLock {
 public:
    virtual ~SettingsLock() = default;
    // False when the lock was not to be had in time; a deadline in the past still takes a lock that is free.
    // Throws boost::interprocess::interprocess_exception.
    virtual bool lock(SettingsTime deadline) = 0;
};

// Throws boost::interprocess::interprocess_exception when the file cannot be opened.
using OpenSettingsLock = std::function<std::unique_ptr<SettingsLock>(const std::filesystem::path&)>;
std::unique_ptr<SettingsLock> OpenSettingsFileLock(const std::filesystem::path& path);

// For the threads of this process and for other processes together.
constexpr std::chrono::seconds kSettingsLockTimeout{60};

using ReadSettings = std::function<TSettings(std::ifstream&)>;
TSettings LoadSettingsWith(const std::filesystem::path& path, const ReadSettings& read);

void SaveSettingsWith(const std::filesystem::path& path, const TSettings& settings,
                      const OpenSettingsLock& openLock, const SettingsClock& now);

// Replaces the templates in the file under its lock.
void InstanceSettingsWith(const std::filesystem::path& path, const std::map<std::string, std::string>& values,
                          const OpenSettingsLock& openLock, const SettingsClock& now);

// The base name of a module as the products' "NativeName" has it: without extension and without ".vshost".
std::string NativeNameOf(const std::filesystem::path& module);

}  // namespace cmn::proto
