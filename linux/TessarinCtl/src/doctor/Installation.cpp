#include "doctor/Installation.h"

#include <exception>

#include "common/bundle.h"
#include "common/proto_settings.h"
#include "useragent/AgentNames.h"

namespace ctl {

std::filesystem::path AgentOf(const Machine& machine) {
    return machine.bundle / "Contents/Linux/TessarinUserAgent";
}

std::filesystem::path SettingsOf(const Machine& machine) {
    return cmn::SharedPathOf(machine.bundle, AgentOf(machine)) / "settings.json";
}

std::vector<std::filesystem::path> LogStems(const std::filesystem::path& agent,
                                            const std::filesystem::path& userLogs) {
    std::vector<std::filesystem::path> stems{useragent::LogStem(agent)};
    if (!userLogs.empty()) {
        stems.push_back(userLogs / stems.front().filename());
    }
    return stems;
}

bool RequiresRootServices(const std::filesystem::path& settings) {
    try {
        return cmn::proto::LoadSettings(settings).RequireRootServices;
    } catch (const std::exception&) {
        return false;
    }
}

std::string InstallCommand(const Machine& machine, const std::string& debs, const std::string& rpms) {
    if (machine.desktop.hasProgram("apt-get")) {
        return "sudo apt-get install " + debs;
    }
    if (machine.desktop.hasProgram("dnf")) {
        return "sudo dnf install " + rpms;
    }
    return "install " + debs;
}

std::string ReinstallCommand(const Machine& machine) {
    if (machine.desktop.hasProgram("apt-get")) {
        return "sudo apt-get install --reinstall tessarin-user-agent";
    }
    if (machine.desktop.hasProgram("dnf")) {
        return "sudo dnf reinstall tessarin-user-agent";
    }
    return "install tessarin-user-agent again";
}

std::string Quoted(const std::filesystem::path& path) {
    return '"' + path.string() + '"';
}

}  // namespace ctl
