#pragma once

#include <filesystem>
#include <string>

#include "doctor/Surroundings.h"

namespace ctl {

std::filesystem::path AgentOf(const Surroundings& surroundings);     // its program
std::filesystem::path SettingsOf(const Surroundings& surroundings);  // the file

// The command that installs packages, as far as this machine's way to do that is known.
std::string InstallCommand(const Surroundings& surroundings, const std::string& debs,
                           const std::string& rpms);

// The one that brings files of the product back.
std::string ReinstallCommand(const Surroundings& surroundings);

// A path in a sentence.
std::string Quoted(const std::filesystem::path& path);

}  // namespace ctl
