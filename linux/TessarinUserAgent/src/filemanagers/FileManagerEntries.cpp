#include "filemanagers/FileManagerEntries.h"

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>

#include "common/make_error.h"
#include "filemanagers/FileChange.h"
#include "filemanagers/Quoting.h"
#include "filemanagers/ThunarActions.h"

namespace useragent {
namespace {

using std::filesystem::path;

constexpr const char* kHelper = "tessarin-properties";

std::string Template(const path& file) {
    std::optional<std::string> text = ReadUserFile(file);
    if (!text) {
        throw cmn::make_error(file.string(), " is missing. Install the Tessarin agent again.");
    }
    return *std::move(text);
}

// Everything of the change or nothing.
void ApplyAll(std::vector<FileChange>& changes) {
    auto next = changes.begin();
    try {
        for (; next != changes.end(); ++next) {
            next->apply();
        }
    } catch (...) {
        while (next != changes.begin()) {
            (--next)->undo();
        }
        throw;
    }
}

}  // namespace

FileManagerEntries::FileManagerEntries(path templates, XdgFolders folders)
    : templates_(std::move(templates)), folders_(std::move(folders)) {}

path FileManagerEntries::entryFile(FileManager manager) const {
    return folders_.*FactsOf(manager).entryFolder / FactsOf(manager).entryFile;
}

path FileManagerEntries::helperFile() const {
    return folders_.dataHome / "tessarin" / kHelper;
}

// The templates are among the resources of the bundle that has the program.
std::string FileManagerEntries::helperText() const {
    const path agent = templates_.parent_path().parent_path() / "Linux/TessarinUserAgent";
    return Replaced(Template(templates_ / kHelper), "@AGENT@", QuotedForShell(agent.native()));
}

std::string FileManagerEntries::entryText(FileManager manager) const {
    const path helper = helperFile();
    if (std::ranges::any_of(helper.native(), [](unsigned char c) { return c < ' ' || c == 0x7f; })) {
        throw cmn::make_error("File managers cannot start programs from the folder ",
                              helper.parent_path().string(), ": its name holds a control character.");
    }
    const FileManagerFacts& facts = FactsOf(manager);
    return Replaced(Template(templates_ / facts.entryTemplate), "@HELPER@", facts.writtenInEntry(helper));
}

// The list that Thunar uses while the user has none; the user's hides it.
std::string FileManagerEntries::thunarBase() const {
    for (const path& folder : folders_.configFolders) {
        try {
            if (const auto list = ReadUserFile(folder / "Thunar/uca.xml")) {
                static_cast<void>(thunar::HasAction(*list));
                return *list;
            }
        } catch (const std::exception&) {
            break;  // Thunar would not read it either.
        }
    }
    return thunar::kEmptyList;
}

std::string FileManagerEntries::textWithEntry(FileManager manager) const {
    const path file = entryFile(manager);
    const std::optional<std::string> before = ReadUserFile(file);
    std::string text = entryText(manager);
    if (manager != FileManager::thunar) {
        if (before && before->find(kHelper) == std::string::npos) {
            throw cmn::make_error(file.string(), " is not from Tessarin and was left alone.");
        }
        return text;
    }
    boost::algorithm::trim(text);
    if (!before) {
        return thunar::WithAction(thunarBase(), thunar::MarkedAsMaker(text));
    }
    try {
        return thunar::WithAction(*before, text);
    } catch (const std::exception& error) {
        throw cmn::make_error(file.string(), error.what());
    }
}

void FileManagerEntries::install(FileManager manager) const {
    std::vector<FileChange> changes;
    changes.emplace_back(helperFile(), helperText(), true);
    changes.emplace_back(entryFile(manager), textWithEntry(manager), FactsOf(manager).isEntryExecutable);
    ApplyAll(changes);
}

bool FileManagerEntries::hasEntry(FileManager manager) const {
    const std::optional<std::string> text = ReadUserFile(entryFile(manager));
    if (manager == FileManager::thunar) {
        return text && thunar::HasAction(*text);
    }
    return text && text->find(kHelper) != std::string::npos;
}

bool FileManagerEntries::isInstalled(FileManager manager) const noexcept {
    try {
        return hasEntry(manager) &&
               (!FactsOf(manager).isEntryExecutable || IsExecutableFile(entryFile(manager))) &&
               IsExecutableFile(helperFile());
    } catch (const std::exception&) {
        return false;
    }
}

bool FileManagerEntries::isBroken(FileManager manager) const noexcept {
    try {
        return hasEntry(manager) && !isInstalled(manager);
    } catch (const std::exception&) {
        return false;  // a file that is not for us to mend
    }
}

void FileManagerEntries::remove(FileManager manager) const {
    const path file = entryFile(manager);
    const std::optional<std::string> before = ReadUserFile(file);
    std::optional<std::string> after;
    if (before && manager == FileManager::thunar) {
        try {
            after = thunar::WithoutAction(*before);
            if (thunar::IsMadeByUs(*before) && after == thunarBase()) {
                after.reset();
            }
        } catch (const std::exception& error) {
            throw cmn::make_error(file.string(), error.what());
        }
    } else if (before && before->find(kHelper) == std::string::npos) {
        after = before;  // Someone else's.
    }
    FileChange(file, after).apply();
    removeHelper();
}

// The last entry takes the helper with it.
void FileManagerEntries::removeHelper() const {
    const bool isNeeded = std::any_of(kFileManagers.begin(), kFileManagers.end(), [this](FileManager other) {
        try {
            return hasEntry(other);
        } catch (const std::exception&) {
            return false;
        }
    });
    if (!isNeeded) {
        FileChange(helperFile(), std::nullopt).apply();
        std::error_code ignored;
        std::filesystem::remove(helperFile().parent_path(), ignored);  // when it is empty
    }
}

}  // namespace useragent
