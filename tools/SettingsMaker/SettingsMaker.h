#pragma once

#include <filesystem>
#include <string>

namespace host {

// What an installation fills in; see cmn::proto::InstanceSettings.
struct SettingsTemplate {
    std::string file;
    std::string installationKey;
    std::string scanRoot;    // empty: the home of the user at the console
    std::string deviceUuid;  // empty: a random one
};

// "settings.json" beside the program.
std::filesystem::path OwnSettingsFile();

// Makes the file from a template as an installation does. What is there is replaced only when the new
// settings can be loaded. Throws std::runtime_error, or what loading them throws.
void MakeSettings(const SettingsTemplate& from, const std::filesystem::path& file);

// Makes `version` the installed one of the product of that name and leaves everything else as it is, also
// what this version does not know. False when it is there already, or when there is no such product. Throws
// std::runtime_error when the file cannot be read, is none of settings or cannot be written; it is then as
// before.
bool SetInstalledVersion(const std::filesystem::path& file, const std::string& product,
                         const std::string& version);

}  // namespace host
