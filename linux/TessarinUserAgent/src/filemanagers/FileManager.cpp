#include "filemanagers/FileManager.h"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>

#include "common/make_error.h"
#include "filemanagers/Quoting.h"
#include "permissions/DefaultApplications.h"

namespace useragent {
namespace {

using std::filesystem::path;

std::string InScript(const path& helper) {
    return QuotedForShell(helper.native());
}

std::string InNemoAction(const path& helper) {
    if (helper.native().find('%') != std::string::npos) {
        throw cmn::make_error("Nemo cannot start programs from the folder ", helper.parent_path().string(),
                              ": its name holds a percent sign.");
    }
    return Replaced(InScript(helper), "\\", "\\\\");
}

std::string InThunarAction(const path& helper) {
    return EscapedForXml(Replaced(InScript(helper), "%", "%%"));
}

std::string InDesktopFile(const path& helper) {
    return QuotedForDesktopFile(helper.native());
}

// In the order of `kFileManagers`.
constexpr FileManagerFacts kFacts[] = {
    {"Nautilus", "gnome:unity:budgie",
     "org.gnome.nautilus.desktop:nautilus.desktop:nautilus-folder-handler.desktop", "nautilus-script",
     &XdgFolders::dataHome, "nautilus/scripts/Tessarin Properties", true, InScript,
     "Nautilus shows it in the context menu of a file, under \"Scripts\"."},
    {"Nemo", "x-cinnamon:cinnamon", "nemo.desktop", "nemo.nemo_action", &XdgFolders::dataHome,
     "nemo/actions/tessarin-properties.nemo_action", false, InNemoAction,
     "Nemo shows it in the context menu of a file."},
    {"Caja", "mate", "caja.desktop:caja-browser.desktop:caja-folder-handler.desktop", "caja-script",
     &XdgFolders::configHome, "caja/scripts/Tessarin Properties", true, InScript,
     "Caja shows it in the context menu of a file, under \"Scripts\"."},
    {"Thunar", "xfce", "thunar.desktop:thunar-folder-handler.desktop", "thunar-action.xml",
     &XdgFolders::configHome, "Thunar/uca.xml", false, InThunarAction,
     "Thunar shows it in the context menu of a file, after Thunar was ended (thunar -q) and started again."},
    // It does not trust a desktop file of the user's that cannot be executed.
    {"Dolphin", "kde", "org.kde.dolphin.desktop:dolphin.desktop", "dolphin.desktop", &XdgFolders::dataHome,
     "kio/servicemenus/tessarin-properties.desktop", true, InDesktopFile,
     "Dolphin shows it in the context menu of a file, perhaps under \"Actions\", in windows that are opened "
     "from now on."},
};
static_assert(std::size(kFacts) == kFileManagers.size());

template <typename Condition>
std::optional<FileManager> First(Condition isMeant) {
    const auto* found = std::find_if(kFileManagers.begin(), kFileManagers.end(), isMeant);
    return found == kFileManagers.end() ? std::nullopt : std::optional(*found);
}

// The first of the names that is in somebody's list.
std::optional<FileManager> FirstKnown(const std::vector<std::string>& names,
                                      const char* FileManagerFacts::*list) {
    for (const std::string& name : names) {
        const auto known = First([&](FileManager manager) {
            const auto listed = SplitList(FactsOf(manager).*list);
            return std::find(listed.begin(), listed.end(), boost::algorithm::to_lower_copy(name)) !=
                   listed.end();
        });
        if (known) {
            return known;
        }
    }
    return std::nullopt;
}

}  // namespace

const FileManagerFacts& FactsOf(FileManager manager) {
    return kFacts[static_cast<std::size_t>(manager)];
}

std::string ProgramOf(FileManager manager) {
    return boost::algorithm::to_lower_copy(std::string(FactsOf(manager).name));
}

std::optional<FileManager> FileManagerNamed(std::string_view name) {
    const std::string program = boost::algorithm::to_lower_copy(std::string(name));
    return First([&](FileManager manager) { return ProgramOf(manager) == program; });
}

std::optional<FileManager> ChooseFileManager(const std::vector<std::string>& desktopNames,
                                             const std::vector<std::string>& folderHandlers,
                                             const ProgramLookup& hasProgram) {
    if (const auto known = FirstKnown(desktopNames, &FileManagerFacts::desktops)) {
        return known;
    }
    if (const auto known = FirstKnown(folderHandlers, &FileManagerFacts::folderHandlers)) {
        return known;
    }
    return First([&](FileManager manager) { return hasProgram(ProgramOf(manager)); });
}

std::optional<FileManager> FileManagerOf(const DesktopSession& session) noexcept {
    try {
        const std::vector<std::string> names = SplitList(session.currentDesktop);
        return ChooseFileManager(names, DefaultApplications(session.folders, names, "inode/directory"),
                                 session.hasProgram);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace useragent
