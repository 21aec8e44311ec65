#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace useragent {

// Where the user's and the system's files of desktop programs are. Absolute; empty when not known.
struct XdgFolders {
    std::filesystem::path dataHome;
    std::filesystem::path configHome;
    std::vector<std::filesystem::path> dataFolders;    // the system's, most important first
    std::vector<std::filesystem::path> configFolders;  // the system's, most important first
};

// Whether a program of this name can be started.
using ProgramLookup = std::function<bool(const std::string& name)>;

// What is known of the desktop that the user sits at.
struct DesktopSession {
    std::string currentDesktop;  // XDG_CURRENT_DESKTOP: a list, most specific first
    XdgFolders folders;
    ProgramLookup hasProgram;
};

using EnvironmentLookup = std::function<std::optional<std::string>(const char* variable)>;

XdgFolders XdgFoldersFrom(const EnvironmentLookup& environment);

// The desktop of this process. `hasProgram` reads PATH anew each time.
DesktopSession CurrentDesktopSession();

// The parts of a list like XDG_CURRENT_DESKTOP, which are separated by colons; no empty ones.
std::vector<std::string> SplitList(std::string_view list);

}  // namespace useragent
