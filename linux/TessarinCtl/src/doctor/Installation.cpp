#include "doctor/Installation.h"

#include "common/bundle.h"

namespace ctl {

std::filesystem::path AgentOf(const Surroundings& surroundings) {
    return surroundings.bundle / "Contents/Linux/TessarinUserAgent";
}

std::filesystem::path SettingsOf(const Surroundings& surroundings) {
    return cmn::SharedPathOf(surroundings.bundle, AgentOf(surroundings)) / "settings.json";
}

std::string InstallCommand(const Surroundings& surroundings, const std::string& debs,
                           const std::string& rpms) {
    if (surroundings.desktop.hasProgram("apt-get")) {
        return "sudo apt-get install " + debs;
    }
    if (surroundings.desktop.hasProgram("dnf")) {
        return "sudo dnf install " + rpms;
    }
    return "install " + debs;
}

std::string ReinstallCommand(const Surroundings& surroundings) {
    if (surroundings.desktop.hasProgram("apt-get")) {
        return "sudo apt-get install --reinstall tessarin-user-agent";
    }
    if (surroundings.desktop.hasProgram("dnf")) {
        return "sudo dnf reinstall tessarin-user-agent";
    }
    return "install tessarin-user-agent again";
}

std::string Quoted(const std::filesystem::path& path) {
    return '"' + path.string() + '"';
}

}  // namespace ctl
