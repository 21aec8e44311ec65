#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "SettingsMaker.h"
#include "common/causes.h"
#include "common/log.h"
#include "common/log_place.h"

// For the scripts of the packages: what lies beside the program is the installed product's.

namespace {

constexpr const char* kHelp =
    R"(Usage: TessarinSettings TEMPLATE [--installation-key KEY] [--scan-root FOLDER] [--device-uuid UUID]

Makes settings.json beside the program from a template when there is none, with what the options say filled
in (default: no key, the home of the user at the console, a random UUID). Then makes the version of the agent
in it that of this program and leaves everything else as it is.

Exit codes: 0 done, or there was nothing to do; 1 failed; 2 wrong arguments.
)";

// False for arguments that cannot be understood.
bool Read(const std::vector<std::string>& arguments, host::SettingsTemplate& from) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string* const value = arguments[i] == "--installation-key" ? &from.installationKey
                                   : arguments[i] == "--scan-root"      ? &from.scanRoot
                                   : arguments[i] == "--device-uuid"    ? &from.deviceUuid
                                                                        : nullptr;
        if (value != nullptr && i + 1 < arguments.size()) {
            *value = arguments[++i];
        } else if (value == nullptr && !arguments[i].starts_with("-") && from.file.empty()) {
            from.file = arguments[i];
        } else {
            return false;
        }
    }
    return !from.file.empty();
}

void Install(const host::SettingsTemplate& from) {
    const auto file = host::OwnSettingsFile();
    if (!std::filesystem::exists(file)) {
        host::MakeSettings(from, file);
        // The agent of every user reads them.
        std::filesystem::permissions(
            file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
                      std::filesystem::perms::group_read | std::filesystem::perms::others_read);
    }
    host::SetInstalledVersion(file, "Agent", TESSARIN_VERSION);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments == std::vector<std::string>{"--help"}) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    host::SettingsTemplate from;
    if (!Read(arguments, from)) {
        std::fputs(kHelp, stderr);
        return 2;
    }
    SetLogFileExtension(cmn::kNoLogFile);
    try {
        Install(from);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "TessarinSettings: %s\n", error.what());
        for (const std::string& cause : cmn::CausesOf(error)) {
            std::fprintf(stderr, "caused by: %s\n", cause.c_str());
        }
        return 1;
    }
}
