#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace useragent {

// The file managers whose context menu can hold the product's entry.
enum class FileManager { nautilus, nemo, caja, thunar, dolphin };

inline constexpr std::array kFileManagers{FileManager::nautilus, FileManager::nemo, FileManager::caja,
                                          FileManager::thunar, FileManager::dolphin};

// How users know it, e.g. "Nautilus". In small letters this is also the name of its program.
std::string NameOf(FileManager manager);
std::string ProgramOf(FileManager manager);

// By either name, whatever the case.
std::optional<FileManager> FileManagerNamed(std::string_view name);

// Whether a program of this name can be started.
using ProgramLookup = std::function<bool(const std::string& name)>;

// The parts of XDG_CURRENT_DESKTOP, most specific first.
std::vector<std::string> DesktopNames(std::string_view currentDesktop);

// The file manager of a desktop: the one its name stands for, else the first known of `folderHandlers`
// (desktop file names of the programs that open folders), else the first one that is installed.
std::optional<FileManager> ChooseFileManager(const std::vector<std::string>& desktopNames,
                                             const std::vector<std::string>& folderHandlers,
                                             const ProgramLookup& hasProgram);

}  // namespace useragent
