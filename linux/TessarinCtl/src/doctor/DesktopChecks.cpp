#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "common/make_error.h"
#include "doctor/Checks.h"
#include "doctor/Installation.h"
#include "doctor/Machine.h"
#include "filemanagers/FileManagerEntries.h"
#include "permissions/DefaultApplications.h"
#include "statusitem/StatusNotifier.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;
namespace fs = std::filesystem;

constexpr const char* kHandler = "com.tessarin.TessarinUserAgent.desktop";
constexpr const char* kSchemeType = "x-scheme-handler/tessarin-scheme";

useragent::FileManagerEntries EntriesOf(const Machine& machine) {
    return {machine.bundle / "Contents/Resources/file-managers", machine.desktop.folders};
}

// A desktop file of that name; empty when none is installed.
fs::path DesktopFile(const Machine& machine, const std::string& name) {
    std::vector<fs::path> folders = machine.desktop.folders.dataFolders;
    folders.insert(folders.begin(), machine.desktop.folders.dataHome);
    for (const fs::path& folder : folders) {
        std::error_code error;
        if (folder.is_absolute() && fs::exists(folder / "applications" / name, error)) {
            return folder / "applications" / name;
        }
    }
    return {};
}

// The program that a desktop file starts; it has no blanks in its path.
std::string ProgramOf(const fs::path& desktopFile) {
    constexpr std::string_view kExec = "Exec=";
    std::ifstream lines(desktopFile);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(kExec)) {
            return line.substr(kExec.size(), line.find(' ') - kExec.size());
        }
    }
    return {};
}

void RegisterHandler(const Machine& machine, bus::Deadline deadline) {
    if (!machine.runs({"xdg-mime", "default", kHandler, kSchemeType}, deadline)) {
        throw cmn::make_error("xdg-mime did not do it");
    }
}

}  // namespace

Finding CheckTray(const Machine& machine, bus::Deadline deadline) {
    const auto session = machine.buses->session(deadline);
    if (session) {
        const auto answer = (*session)->callAndWait(
            (*session)->makeCall(useragent::kNotifierWatcher, useragent::kNotifierWatcherPath,
                                 bus::kProperties, "Get", useragent::kNotifierWatcher,
                                 useragent::kHasNotifierHost),
            deadline);
        if (!answer && (answer.error().is(bus::error::kTimeout) || answer.error().is(bus::error::kNoReply))) {
            return {Verdict::warning, "The desktop's status area does not answer", "start the panel again"};
        }
        const auto hasHost = answer ? answer->readOne<bus::Variant<bool>>() : answer.error();
        if (hasHost && hasHost->value) {
            return Good("A panel on the session's bus shows it");
        }
    }
    const std::optional<bool> tray = machine.hasWindowTray();
    if (tray.value_or(false)) {
        return Good("A tray of the X server shows it");
    }
    const bool isGnome = machine.desktop.currentDesktop.find("GNOME") != std::string::npos;
    return {Verdict::warning, "No panel shows status items, so the agent's menu cannot be opened",
            isGnome ? InstallCommand(machine, "gnome-shell-extension-appindicator",
                                     "gnome-shell-extension-appindicator") +
                          ", log in again and switch the extension on"
                    : "add the area for status items (system tray) to the panel"};
}

Finding CheckFileManager(const Machine& machine, bus::Deadline /*deadline*/) {
    const auto manager = useragent::FileManagerOf(machine.desktop);
    if (!manager) {
        return NotApplicable("No file manager is known that could have one");
    }
    const char* const name = useragent::FactsOf(*manager).name;
    const auto entries = EntriesOf(machine);
    if (entries.isInstalled(*manager)) {
        return Good(fmt::format("{} has it", name));
    }
    const std::string command = AgentOf(machine).string() + " --file-manager-action ";
    if (entries.isBroken(*manager)) {
        return {
            Verdict::wrong, fmt::format("{} shows an entry that does nothing", name),
            fmt::format("{}remove {}", command, useragent::ProgramOf(*manager)),
            [manager](const Machine& here, bus::Deadline /*until*/) { EntriesOf(here).remove(*manager); }};
    }
    return {Verdict::warning, fmt::format("{} has none", name),
            fmt::format("{}install {}", command, useragent::ProgramOf(*manager))};
}

Finding CheckUrlScheme(const Machine& machine, bus::Deadline /*deadline*/) {
    const fs::path file = DesktopFile(machine, kHandler);
    if (file.empty()) {
        return {Verdict::wrong, fmt::format("{} is not installed", kHandler), ReinstallCommand(machine)};
    }
    const std::string program = ProgramOf(file);
    if (::access(program.c_str(), X_OK) != 0) {
        return {Verdict::wrong, fmt::format("{} starts {}, which is missing", Quoted(file), Quoted(program)),
                ReinstallCommand(machine)};
    }
    const auto& folders = machine.desktop.folders;
    auto handlers = useragent::DefaultApplications(
        folders, useragent::SplitList(machine.desktop.currentDesktop), kSchemeType);
    const auto known = useragent::KnownApplications(folders, kSchemeType);
    handlers.insert(handlers.end(), known.begin(), known.end());
    const auto first = std::find_if(handlers.begin(), handlers.end(), [&](const std::string& handler) {
        return !DesktopFile(machine, handler).empty();
    });
    if (first != handlers.end() && *first == kHandler) {
        return Good("The desktop opens them with the agent");
    }
    const std::string command = fmt::format("xdg-mime default {} {}", kHandler, kSchemeType);
    return {Verdict::wrong,
            first == handlers.end() ? "The desktop does not know who opens them"
                                    : fmt::format("The desktop opens them with {}", *first),
            command, RegisterHandler};
}

}  // namespace ctl
