#include "useragent/Agent.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <exception>
#include <functional>

#include "common/ScopedAction.h"
#include "common/SystemUtils.h"
#include "common/bundle.h"
#include "common/causes.h"
#include "common/log.h"
#include "common/log_place.h"
#include "common/utf8.h"
#include "useragent/AgentNames.h"
#include "useragent/BrowserURLWatcher.h"
#include "xpccommon/UserAgentXPCClient.h"

namespace useragent {

std::atomic<bool> g_run{true};

extern "C" void SigtermHandler(int) {
    g_run = false;
    StopCurrentRunLoop();
}

std::vector<std::string> BrowserList() {
    return {"Safari", "Google Chrome", "Firefox"};
}

cmn::proto::TSettings AgentFacts::settings() {
    return cmn::proto::GetSettings();
}

std::filesystem::path AgentFacts::executablePath() {
    return cmn::GetCurrentExecutablePath();
}

std::filesystem::path AgentFacts::userLogFolder() {
    return cmn::GetUserLogFolder();
}

std::optional<std::string> AgentFacts::bundleShortVersion() {
    return cmn::GetBundleShortVersion();
}

namespace {

// Returns the settings, which are asked for once.
cmn::proto::TSettings StartLog(AgentFacts& facts) {
    auto settings = facts.settings();
    SetLogLevel(LogLevelFromString(settings.LogLevel));
    const std::filesystem::path wanted = LogStem(facts.executablePath());
    const auto stem = cmn::WritableLogStem(wanted, {facts.userLogFolder()});
    if (stem) {
        SetLogPath(stem->c_str());
    } else {
        SetLogFileExtension(cmn::kNoLogFile);
    }
    LogStartMessage();
    TLOG_INFO("Starting TessarinUserAgent {}", facts.bundleShortVersion().value_or("????"));
    if (!stem) {
        TLOG_WARN(
            "The log cannot be written to {}_0.log, nor to the user's folder for logs, so it goes to the "
            "standard error stream",
            wanted.string());
    }
    return settings;
}

int Run(AgentPlatform& platform, cmn::ServiceOwners serviceOwners) {
    const std::shared_ptr<Accessibility> accessibility = platform.accessibility();
    RequestAccesibilityPermission(*accessibility);

    const std::shared_ptr<BrowserURLWatcher> watcher = CreateBrowserURLWatcher(
        BrowserList(), WatcherPorts{accessibility, platform.windowList(), platform.pollingPause(),
                                    [] { return std::chrono::steady_clock::now(); }});
    std::shared_ptr<cmn::UserAgentXPCClient> client;
    // Also when an exception ends this, and before the owners go: the polling thread may hold the client for
    // a moment, and through the client's callback the watcher.
    const cmn::ScopedAction stopWatching([&] { watcher->stop(); });
    const std::shared_ptr<cmn::Dispatch> dispatch = platform.dispatch();
    client = std::make_shared<cmn::UserAgentXPCClient>(
        [watcher](const std::string& browser) {
            std::string url = watcher->getURL(browser);
            TLOG_DEBUG("{}", cmn::EscapeControls(url));
            return url;
        },
        dispatch, platform.transport(), serviceOwners);
    watcher->setXPCClient(client);
    // Then the watcher stops, and the locals go in the reverse order of their creation: client, watcher.
    return platform.runApplication();
}

// The message is deliberately used as the format text, so braces in it are interpreted and may make it fail.
void LogStartFailure(const std::exception& error) {
    try {
        TLOG_ERROR(fmt::runtime(error.what()));
    } catch (const fmt::format_error& formatError) {
        TLOG_ERROR("A start-up failure could not be formatted: {} -- {}", formatError.what(), error.what());
    }
}

int EndWithFailuresLogged(const std::function<int()>& run) {
    try {
        return run();
    } catch (const std::exception& error) {
        LogStartFailure(error);
        for (const std::string& cause : cmn::CausesOf(error)) {
            TLOG_ERROR("caused by: {}", cause);
        }
    }
    return 0;
}

}  // namespace

int RunAgent(AgentPlatform& platform) {
    std::signal(SIGTERM, SigtermHandler);
    return EndWithFailuresLogged([&] {
        const auto settings = StartLog(platform);
        return Run(platform, cmn::OwnersOf(settings));
    });
}

int ReportStartFailure(AgentFacts& facts, const std::exception_ptr& failure) {
    return EndWithFailuresLogged([&]() -> int {
        StartLog(facts);
        std::rethrow_exception(failure);
    });
}

}  // namespace useragent
