#include "Surroundings.h"

#include <system_error>

#include "common/SystemUtils.h"
#include "common/bundle.h"
#include "linux_bus/WellKnown.h"

namespace ctl {

namespace fs = std::filesystem;

namespace {

constexpr const char* kAgentInFolder = "TessarinUserAgent.app/Contents/Linux/TessarinUserAgent";
constexpr const char* kInstalledFolder = "/opt/tessarin";

fs::path AgentExecutable() {
    const fs::path own = cmn::GetCurrentExecutablePath();
    const fs::path beside = own.parent_path() / kAgentInFolder;
    std::error_code error;
    return fs::exists(beside, error) ? beside : fs::path(kInstalledFolder) / kAgentInFolder;
}

}  // namespace

fs::path Surroundings::settings() const {
    return cmn::SharedPathOf(cmn::BundlePathOf(agent), agent) / "settings.json";
}

Surroundings OwnSurroundings() {
    return {cmn::bus::SessionBusAddress(), cmn::bus::SystemBusAddress(), AgentExecutable(),
            cmn::GetUserLogFolder(), Patience()};
}

}  // namespace ctl
