#include "filemanagers/FileManagerCommand.h"

#include "common/SystemUtils.h"
#include "common/bundle.h"

namespace useragent {
namespace {

enum ExitCode { kDone = 0, kFailed = 1, kWrongArguments = 2, kNotInstalled = 3 };

int Usage(std::ostream& err) {
    err << "Arguments: install|remove|status [nautilus|nemo|caja|thunar|dolphin]\n";
    return kWrongArguments;
}

}  // namespace

int RunFileManagerCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    const std::filesystem::path bundle = cmn::BundlePathOf(cmn::GetCurrentExecutablePath());
    const DesktopSession session = CurrentDesktopSession();
    const FileManagerEntries entries(bundle / "Contents/Resources/file-managers", session.folders);
    return RunFileManagerCommand(arguments, entries, session, out, err);
}

int RunFileManagerCommand(const std::vector<std::string>& arguments, const FileManagerEntries& entries,
                          const DesktopSession& session, std::ostream& out, std::ostream& err) {
    if (arguments.empty() || arguments.size() > 2) {
        return Usage(err);
    }
    const std::string& action = arguments.front();
    if (action != "install" && action != "remove" && action != "status") {
        return Usage(err);
    }
    std::optional<FileManager> manager;
    if (arguments.size() > 1) {
        manager = FileManagerNamed(arguments.back());
        if (!manager) {
            err << "No file manager is known as \"" << arguments.back() << "\".\n";
            return Usage(err);
        }
    } else if (manager = FileManagerOf(session); !manager) {
        err << "The file manager of this desktop is not known; name one.\n";
        return kFailed;
    }
    try {
        if (action == "install") {
            entries.install(*manager);
        } else if (action == "remove") {
            entries.remove(*manager);
        }
    } catch (const std::exception& error) {
        err << error.what() << '\n';
        return kFailed;
    }
    const bool isInstalled = entries.isInstalled(*manager);
    out << FactsOf(*manager).name << (isInstalled ? ": installed\n" : ": not installed\n");
    return action == "status" && !isInstalled ? kNotInstalled : kDone;
}

}  // namespace useragent
