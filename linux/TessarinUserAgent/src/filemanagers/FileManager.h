#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "permissions/DesktopSession.h"

namespace useragent {

// The file managers whose context menu can hold the product's entry. A further one is a name here and a row
// in FileManager.cpp.
enum class FileManager { nautilus, nemo, caja, thunar, dolphin };

inline constexpr std::array kFileManagers{FileManager::nautilus, FileManager::nemo, FileManager::caja,
                                          FileManager::thunar, FileManager::dolphin};

struct FileManagerFacts {
    const char* name;            // as users know it, e.g. "Nautilus"; in small letters also its program's
    const char* desktops;        // whose own it is, in small letters, separated by colons
    const char* folderHandlers;  // its desktop files, in small letters, separated by colons
    const char* entryTemplate;   // a file of packaging/file-managers
    std::filesystem::path XdgFolders::*entryFolder;
    const char* entryFile;  // below that folder
    bool isEntryExecutable;
    // The path of the helper as the entry has it. Throws std::runtime_error with a sentence for the user.
    std::string (*writtenInEntry)(const std::filesystem::path& helper);
    const char* place;  // where the entry is found, and from when on
};
const FileManagerFacts& FactsOf(FileManager manager);

// Its program's name.
std::string ProgramOf(FileManager manager);

// The one that users know by this name, or whose program has it, in any case.
std::optional<FileManager> FileManagerNamed(std::string_view name);

// The file manager of a desktop: the one its name stands for, else the first known of `folderHandlers`
// (the desktop files that were chosen for opening folders), else the first one that is installed.
std::optional<FileManager> ChooseFileManager(const std::vector<std::string>& desktopNames,
                                             const std::vector<std::string>& folderHandlers,
                                             const ProgramLookup& hasProgram);

// The file manager of this desktop. Only looks at files; never throws.
std::optional<FileManager> FileManagerOf(const DesktopSession& session) noexcept;

}  // namespace useragent
