#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "filemanagers/FileManager.h"

namespace useragent {

// Where the user's and the system's files of desktop programs are. Absolute; empty when not known.
struct XdgFolders {
    std::filesystem::path dataHome;
    std::filesystem::path configHome;
    std::vector<std::filesystem::path> dataFolders;    // the system's, most important first
    std::vector<std::filesystem::path> configFolders;  // the system's, most important first
};

// What is known of the desktop that the user sits at.
struct DesktopSession {
    std::string currentDesktop;  // XDG_CURRENT_DESKTOP
    XdgFolders folders;
    ProgramLookup hasProgram;
};

using EnvironmentLookup = std::function<std::optional<std::string>(const char* variable)>;

XdgFolders XdgFoldersFrom(const EnvironmentLookup& environment);

// Of this process. The lookup reads PATH anew each time.
DesktopSession CurrentDesktopSession();

// The desktop files that the user and the system chose for opening folders, most important first.
std::vector<std::string> FolderHandlers(const XdgFolders& folders,
                                        const std::vector<std::string>& desktopNames);

// The file manager of this desktop. Only looks at files; never throws.
std::optional<FileManager> FileManagerOf(const DesktopSession& session) noexcept;

}  // namespace useragent
