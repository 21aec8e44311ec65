#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "filemanagers/FileManagerEntries.h"
#include "support/LogCapture.h"

namespace fake {

std::string ReadFile(const std::filesystem::path& file);
// Makes the folders above as well.
void WriteFile(const std::filesystem::path& file, const std::string& text);
bool IsExecutable(const std::filesystem::path& file);

// Paths of all files below a folder with their texts.
std::map<std::string, std::string> FilesBelow(const std::filesystem::path& folder);

// Runs a program in a folder with nothing but this in its environment; returns its exit code.
struct Run {
    std::filesystem::path folder;
    std::vector<std::string> command;
    std::map<std::string, std::string> environment;
    std::string input;
};
int ExitCodeOf(const Run& run);

// The folders of one user, below a temporary folder, and the desktop the user sits at.
class UserHome {
 public:
    UserHome();

    useragent::DesktopSession session() const;
    useragent::FileManagerEntries entries() const { return {templates, folders}; }

    TemporaryFolder temporary;
    std::filesystem::path templates = FILE_MANAGER_TEMPLATES;
    useragent::XdgFolders folders;
    std::string currentDesktop;
    std::set<std::string> programs;

    // Where the entries are to be found.
    std::filesystem::path nautilus() const {
        return folders.dataHome / "nautilus/scripts/Tessarin Properties";
    }
    std::filesystem::path caja() const { return folders.configHome / "caja/scripts/Tessarin Properties"; }
    std::filesystem::path nemo() const {
        return folders.dataHome / "nemo/actions/tessarin-properties.nemo_action";
    }
    std::filesystem::path dolphin() const {
        return folders.dataHome / "kio/servicemenus/tessarin-properties.desktop";
    }
    std::filesystem::path thunar() const { return folders.configHome / "Thunar/uca.xml"; }
    std::filesystem::path helper() const { return folders.dataHome / "tessarin/tessarin-properties"; }
    std::filesystem::path entryOf(useragent::FileManager manager) const;
};

// A folder with an xdg-open that notes its arguments.
class RecordingOpener {
 public:
    RecordingOpener();
    // PATH for programs that shall find it, and what they need besides.
    std::string searchPath() const;
    // One text for each call: its arguments, each ended by a NUL. Sorted.
    std::vector<std::string> calls() const;
    void failFromNowOn();

 private:
    TemporaryFolder folder_;
};

}  // namespace fake
