#include "permissions/DesktopSession.h"

#include <QStandardPaths>
#include <QString>
#include <boost/algorithm/string/split.hpp>
#include <cstdlib>

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
    for (path folder : SplitList(listed.empty() ? otherwise : listed)) {
        if (folder.is_absolute()) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
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

std::vector<std::string> SplitList(std::string_view list) {
    std::vector<std::string> parts;
    boost::algorithm::split(parts, list, [](char c) { return c == ':'; });
    std::erase(parts, std::string());
    return parts;
}

}  // namespace useragent
