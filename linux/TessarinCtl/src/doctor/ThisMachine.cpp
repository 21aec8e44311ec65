#include <QLibraryInfo>
#include <QString>
#include <cstdlib>
#include <utility>

#include "doctor/AgentBrowsers.h"
#include "doctor/BrowserLook.h"
#include "doctor/Machine.h"
#include "doctor/RunProgram.h"
#include "doctor/WindowTray.h"
#include "linux_bus/Batch.h"

namespace ctl {

namespace {

std::optional<std::string> OwnVariable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::vector<std::filesystem::path> QtPluginFolders() {
    std::vector<std::filesystem::path> folders;
    for (std::string& folder : useragent::SplitList(OwnVariable("QT_PLUGIN_PATH").value_or(""))) {
        folders.emplace_back(std::move(folder));
    }
    folders.emplace_back(QLibraryInfo::path(QLibraryInfo::PluginsPath).toStdString());
    return folders;
}

}  // namespace

Machine ThisMachine(std::filesystem::path bundle, std::filesystem::path userLogs, std::string systemBus,
                    std::string sessionBus) {
    Machine own;
    own.environment = OwnVariable;
    own.desktop = useragent::CurrentDesktopSession();
    own.buses = std::make_shared<Buses>(std::move(systemBus), std::move(sessionBus));
    own.bundle = std::move(bundle);
    own.userLogs = std::move(userLogs);
    own.qtPlugins = QtPluginFolders();
    own.now = [] { return std::chrono::system_clock::now(); };
    own.freeSpace = [](const std::filesystem::path& folder) -> std::optional<std::uintmax_t> {
        std::error_code error;
        const auto space = std::filesystem::space(folder, error);
        return error ? std::nullopt : std::optional(space.available);
    };
    own.hasWindowTray = HasWindowTray;
    own.browsersOfAgent = [buses = own.buses](cmn::bus::Deadline deadline) {
        return BrowsersOfAgent(*buses, cmn::bus::HalfWayTo(deadline));
    };
    own.browsersSeen = [](cmn::bus::Deadline deadline) { return LookAtBrowsers(deadline); };
    own.runs = RunProgram;
    return own;
}

}  // namespace ctl
