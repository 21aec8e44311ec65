#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "FileScanner.h"
#include "SettingsMaker.h"
#include "common/log.h"

namespace host {

enum class HostBus { system, session };

struct HostOptions {
    HostBus bus = HostBus::system;
    bool json = false;
    std::string logFile;  // stem; empty: the standard error stream
    LogLevel logLevel = LogLevel::Info;
    std::string settingsFile;                      // empty: the program's own, if there is one
    std::optional<SettingsTemplate> makeSettings;  // instead of hosting the services
    ScannerOptions scanner;
    std::string fullDiskAccessFolder;  // empty: as the system says
};

struct HelpWanted {};
struct BadArguments {
    std::string message;
};

// `arguments` without the program's name.
std::variant<HostOptions, HelpWanted, BadArguments> ParseOptions(const std::vector<std::string>& arguments);

const char* HelpText();

}  // namespace host
