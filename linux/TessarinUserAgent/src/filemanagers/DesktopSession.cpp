#include "filemanagers/DesktopSession.h"

#include <QStandardPaths>
#include <QString>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cstdlib>
#include <fstream>

namespace useragent {
namespace {

using std::filesystem::path;

std::optional<std::string> OfThisProcess(const char* variable) {
    const char* value = std::getenv(variable);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

// Relative folders in these variables do not count.
path FolderFrom(const EnvironmentLookup& environment, const char* variable, const char* belowHome) {
    path folder = environment(variable).value_or("");
    if (folder.is_absolute()) {
        return folder;
    }
    const path home = environment("HOME").value_or("");
    return home.is_absolute() ? home / belowHome : path();
}

std::vector<path> FoldersFrom(const EnvironmentLookup& environment, const char* variable,
                              const char* otherwise) {
    const std::string listed = environment(variable).value_or("");
    std::vector<path> folders;
    for (path folder : DesktopNames(listed.empty() ? otherwise : listed)) {
        if (folder.is_absolute()) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
}

// The values of the key for folders among the default applications.
void AddFolderHandlers(const path& file, std::vector<std::string>& handlers) {
    std::ifstream lines(file);
    bool ofDefaults = false;
    for (std::string line; std::getline(lines, line);) {
        boost::algorithm::trim(line);
        if (line.starts_with('[')) {
            ofDefaults = line == "[Default Applications]";
        }
        const std::size_t equals = line.find('=');
        if (!ofDefaults || equals == std::string::npos ||
            boost::algorithm::trim_copy(line.substr(0, equals)) != "inode/directory") {
            continue;
        }
        std::string values = line.substr(equals + 1);
        for (std::size_t end = values.find(';'); !values.empty(); end = values.find(';')) {
            const std::string handler = boost::algorithm::trim_copy(values.substr(0, end));
            if (!handler.empty()) {
                handlers.push_back(handler);
            }
            values.erase(0, end == std::string::npos ? end : end + 1);
        }
    }
}

}  // namespace

XdgFolders XdgFoldersFrom(const EnvironmentLookup& environment) {
    XdgFolders folders;
    folders.dataHome = FolderFrom(environment, "XDG_DATA_HOME", ".local/share");
    folders.configHome = FolderFrom(environment, "XDG_CONFIG_HOME", ".config");
    folders.dataFolders = FoldersFrom(environment, "XDG_DATA_DIRS", "/usr/local/share:/usr/share");
    folders.configFolders = FoldersFrom(environment, "XDG_CONFIG_DIRS", "/etc/xdg");
    return folders;
}

DesktopSession CurrentDesktopSession() {
    DesktopSession session;
    session.currentDesktop = OfThisProcess("XDG_CURRENT_DESKTOP").value_or("");
    session.folders = XdgFoldersFrom(OfThisProcess);
    session.hasProgram = [](const std::string& name) {
        return !QStandardPaths::findExecutable(QString::fromStdString(name)).isEmpty();
    };
    return session;
}

std::vector<std::string> FolderHandlers(const XdgFolders& folders,
                                        const std::vector<std::string>& desktopNames) {
    std::vector<path> places{folders.configHome};
    places.insert(places.end(), folders.configFolders.begin(), folders.configFolders.end());
    places.push_back(folders.dataHome / "applications");
    for (const path& folder : folders.dataFolders) {
        places.push_back(folder / "applications");
    }
    std::vector<std::string> handlers;
    for (const path& place : places) {
        if (!place.is_absolute()) {
            continue;
        }
        for (const std::string& name : desktopNames) {
            AddFolderHandlers(place / (boost::algorithm::to_lower_copy(name) + "-mimeapps.list"), handlers);
        }
        AddFolderHandlers(place / "mimeapps.list", handlers);
    }
    return handlers;
}

std::optional<FileManager> FileManagerOf(const DesktopSession& session) noexcept {
    try {
        const std::vector<std::string> names = DesktopNames(session.currentDesktop);
        return ChooseFileManager(names, FolderHandlers(session.folders, names), session.hasProgram);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace useragent
