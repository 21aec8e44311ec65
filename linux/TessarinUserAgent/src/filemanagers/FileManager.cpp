#include "filemanagers/FileManager.h"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <map>

namespace useragent {
namespace {

const std::map<std::string, FileManager, std::less<>> kByDesktop{
    {"gnome", FileManager::nautilus},  {"unity", FileManager::nautilus}, {"budgie", FileManager::nautilus},
    {"x-cinnamon", FileManager::nemo}, {"cinnamon", FileManager::nemo},  {"mate", FileManager::caja},
    {"xfce", FileManager::thunar},     {"kde", FileManager::dolphin},
};

const std::map<std::string, FileManager, std::less<>> kByFolderHandler{
    {"org.gnome.nautilus.desktop", FileManager::nautilus},
    {"nautilus.desktop", FileManager::nautilus},
    {"nautilus-folder-handler.desktop", FileManager::nautilus},
    {"nemo.desktop", FileManager::nemo},
    {"caja.desktop", FileManager::caja},
    {"caja-browser.desktop", FileManager::caja},
    {"caja-folder-handler.desktop", FileManager::caja},
    {"thunar.desktop", FileManager::thunar},
    {"thunar-folder-handler.desktop", FileManager::thunar},
    {"org.kde.dolphin.desktop", FileManager::dolphin},
    {"dolphin.desktop", FileManager::dolphin},
};

std::optional<FileManager> FirstKnown(const std::vector<std::string>& names,
                                      const std::map<std::string, FileManager, std::less<>>& known) {
    for (const std::string& name : names) {
        const auto found = known.find(boost::algorithm::to_lower_copy(name));
        if (found != known.end()) {
            return found->second;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string NameOf(FileManager manager) {
    switch (manager) {
        case FileManager::nautilus:
            return "Nautilus";
        case FileManager::nemo:
            return "Nemo";
        case FileManager::caja:
            return "Caja";
        case FileManager::thunar:
            return "Thunar";
        case FileManager::dolphin:
            return "Dolphin";
    }
    return {};
}

std::string ProgramOf(FileManager manager) {
    return boost::algorithm::to_lower_copy(NameOf(manager));
}

std::optional<FileManager> FileManagerNamed(std::string_view name) {
    const std::string program = boost::algorithm::to_lower_copy(std::string(name));
    const auto* found = std::find_if(kFileManagers.begin(), kFileManagers.end(),
                                     [&](FileManager manager) { return ProgramOf(manager) == program; });
    return found == kFileManagers.end() ? std::nullopt : std::optional(*found);
}

std::vector<std::string> DesktopNames(std::string_view currentDesktop) {
    std::vector<std::string> names;
    while (!currentDesktop.empty()) {
        const std::size_t end = std::min(currentDesktop.find(':'), currentDesktop.size());
        if (end > 0) {
            names.emplace_back(currentDesktop.substr(0, end));
        }
        currentDesktop.remove_prefix(std::min(end + 1, currentDesktop.size()));
    }
    return names;
}

std::optional<FileManager> ChooseFileManager(const std::vector<std::string>& desktopNames,
                                             const std::vector<std::string>& folderHandlers,
                                             const ProgramLookup& hasProgram) {
    if (const auto known = FirstKnown(desktopNames, kByDesktop)) {
        return known;
    }
    if (const auto known = FirstKnown(folderHandlers, kByFolderHandler)) {
        return known;
    }
    const auto* found = std::find_if(kFileManagers.begin(), kFileManagers.end(),
                                     [&](FileManager manager) { return hasProgram(ProgramOf(manager)); });
    return found == kFileManagers.end() ? std::nullopt : std::optional(*found);
}

}  // namespace useragent
