#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "doctor/Machine.h"

namespace ctl {

std::filesystem::path AgentOf(const Machine& machine);     // its program
std::filesystem::path SettingsOf(const Machine& machine);  // the file

// The stems of the log's files in the places where an agent may have put them, best first: beside its bundle,
// then in the user's folder for logs, if there is one. docs/operations.md has the table.
std::vector<std::filesystem::path> LogStems(const std::filesystem::path& agent,
                                            const std::filesystem::path& userLogs);

// Whether the settings demand that the services are root's. As for the agent, settings that cannot be read do
// not.
bool RequiresRootServices(const std::filesystem::path& settings);

// The command that installs packages, as far as this machine's way to do that is known.
std::string InstallCommand(const Machine& machine, const std::string& debs, const std::string& rpms);

// The one that brings files of the product back.
std::string ReinstallCommand(const Machine& machine);

// A path in a sentence.
std::string Quoted(const std::filesystem::path& path);

}  // namespace ctl
