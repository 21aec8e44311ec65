#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CommandReader.h"
#include "EventWriter.h"
#include "HostOptions.h"
#include "HostPlatform.h"
#include "HostSettings.h"
#include "ServiceHost.h"
#include "common/causes.h"
#include "common/log.h"
#include "common/log_place.h"

namespace {

// Without a file that can be written the log goes to the error stream.
void UseLogFile(const std::string& stem) {
    const std::string file = stem + "_0.log";
    SetLogPath(stem.c_str());
    if (!stem.empty() && std::ofstream(file, std::ios::app)) {
        return;
    }
    SetLogFileExtension(cmn::kNoLogFile);
    if (!stem.empty()) {
        TLOG_WARN("The log cannot be written to {}, so it goes to the standard error stream", file);
    }
}

int Run(host::HostPlatform& platform, const host::HostOptions& options) {
    host::EventWriter events(stdout, options.json);
    host::ServiceHost services(options, events, platform);
    host::CommandReader commands([&services](const std::string& line) { services.execute(line); });
    services.start();
    return platform.run([&commands](std::optional<std::string_view> bytes) {
        if (bytes) {
            commands.feed(*bytes);
        } else {
            commands.finish();
        }
    });
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = host::ParseOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (std::holds_alternative<host::HelpWanted>(parsed)) {
        std::fputs(host::HelpText(), stdout);
        return 0;
    }
    if (const auto* bad = std::get_if<host::BadArguments>(&parsed)) {
        std::fprintf(stderr, "TessarinServiceHost: %s; see --help\n", bad->message.c_str());
        return 2;
    }
    const auto& options = std::get<host::HostOptions>(parsed);
    InstallLogCrashHandlers();
    SetLogJournal(true);
    const auto platform = host::CreateHostPlatform(argc, argv);
    SetLogLevel(options.logLevel);
    UseLogFile(options.logFile);
    try {
        if (options.makeSettings) {
            host::MakeSettings(*options.makeSettings, options.settingsFile.empty()
                                                          ? host::OwnSettingsFile()
                                                          : std::filesystem::path(options.settingsFile));
            return 0;
        }
        return Run(*platform, options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "TessarinServiceHost: %s\n", e.what());
        for (const std::string& cause : cmn::CausesOf(e)) {
            std::fprintf(stderr, "caused by: %s\n", cause.c_str());
        }
        return 2;
    }
}
