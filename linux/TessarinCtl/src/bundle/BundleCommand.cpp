#include "bundle/BundleCommand.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/utsname.h>

#include <exception>

#include "bundle/Archive.h"
#include "bundle/MachineNames.h"
#include "common/SystemUtils.h"
#include "common/json.h"
#include "doctor/Installation.h"

namespace ctl {

namespace {

// Nobody's in particular: where the packages put things, and what they are called on the buses.
constexpr const char* kPublicTexts[] = {
    "/opt/tessarin",
    "/opt/tessarin/TessarinUserAgent.app",
    "/opt/tessarin/TessarinUserAgent.app/Contents/Linux/TessarinUserAgent",
    "/opt/tessarin/TessarinUserAgent.app/Contents/Resources/session/start",
    "/opt/tessarin/com.tessarin.UserAgent_0.log",
    "/opt/tessarin/settings.json",
    "/usr/share/tessarin/settings.json",
    "/usr/share/applications/com.tessarin.TessarinUserAgent.desktop",
    "/usr/share/dbus-1/system.d/com.tessarin.conf",
    "/etc/dbus-1/system.d",
    "/etc/dbus-1/system.d/com.tessarin.conf",
    "/usr/share/polkit-1/actions/com.tessarin.policy",
    "/var/log/tessarin",
    "/org/a11y/bus",
    "settings.json",
};

std::string Versions(const Machine& machine, const std::string& kernel) {
    rapidjson::StringBuffer buffer;
    cmn::proto::PrettyWriter writer(buffer);
    writer.StartObject();
    const auto put = [&](const char* key, const std::string& text) {
        writer.Key(key);
        cmn::proto::toJson(writer, text);
    };
    put("tessarin", TESSARIN_VERSION);
    put("system", cmn::GetOSName());
    put("kernel", kernel);
    put("desktop", machine.desktop.currentDesktop);
    put("session", machine.variable("XDG_SESSION_TYPE"));
    writer.EndObject();
    return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace

BundleSources SourcesOfThisMachine(const Machine& machine, std::map<std::string, std::string> reports) {
    BundleSources sources;
    utsname system{};
    const std::string kernel = ::uname(&system) == 0 ? system.release : "";
    sources.reports = std::move(reports);
    sources.reports["versions.json"] = Versions(machine, kernel);
    sources.settings = SettingsOf(machine);
    for (const auto& stem : LogStems(AgentOf(machine), machine.userLogs)) {
        sources.logFolders.push_back(stem.parent_path());
    }
    sources.logFolders.emplace_back(cmn::GetSystemLogFolder());
    sources.secrets = NamesOnThisMachine();
    sources.kept.assign(std::begin(kPublicTexts), std::end(kPublicTexts));
    sources.kept.push_back(kernel);
    return sources;
}

std::string ArchiveName(std::time_t now) {
    const auto local = cmn::GetLocalTime(now);
    return local ? fmt::format("tessarin-support-{:%Y%m%d-%H%M%S}.tar.gz", *local)
                 : "tessarin-support.tar.gz";
}

int RunBundle(const BundleSources& sources, const std::filesystem::path& archive, std::ostream& out,
              std::ostream& err, std::chrono::milliseconds deadline) {
    try {
        const auto files = RedactedFiles(sources);
        WriteArchive(archive, files, cmn::bus::Clock::now() + deadline);
        out << archive.string() << '\n';
        for (const auto& [name, text] : files) {
            out << fmt::format("    {} ({} bytes)\n", name, text.size());
        }
        return 0;
    } catch (const std::exception& error) {
        err << error.what() << '\n';
        return 1;
    }
}

}  // namespace ctl
