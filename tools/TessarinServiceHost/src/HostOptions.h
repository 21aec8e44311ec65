#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "FileScanner.h"
#include "common/log.h"
#include "linux_usercommon/DBusXPCTransport.h"

namespace host {

// What settings are made from, instead of hosting the services.
struct SettingsTemplate {
    std::string file;
    std::string installationKey;
    std::string scanRoot;    // empty: the home of the user at the console
    std::string deviceUuid;  // empty: a random one
};

struct HostOptions {
    cmn::DBusBus bus = cmn::DBusBus::system;
    bool json = false;
    std::string logFile;  // stem; empty: the standard error stream
    LogLevel logLevel = LogLevel::Info;
    std::string settingsFile;  // empty: the program's own, if there is one
    std::optional<SettingsTemplate> makeSettings;
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
