#include "useragent/Agent.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <exception>
#include <functional>
#include <utility>

#include "common/ScopedAction.h"
#include "common/SystemUtils.h"
#include "common/bundle.h"
#include "common/causes.h"
#include "common/log.h"
#include "common/log_place.h"
#include "common/utf8.h"
#include "useragent/AgentNames.h"
#include "useragent/BrowserURLWatcher.h"
#include "xpccommon/UserAgentObjCXPCClient.h"
#include "xpccommon/UserAgentXPCClient.h"

namespace useragent {

std::atomic<bool> g_run{true};

extern "C" void SigtermHandler(int) {
    g_run = false;
    StopCurrentRunLoop();
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

// What is asked for once.
struct Start {
    cmn::proto::TSettings settings;
    std::string version;
};

Start StartLog(AgentFacts& facts) {
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
    auto version = facts.bundleShortVersion().value_or("????");
    TLOG_INFO("Starting TessarinUserAgent {}", version);
    if (!stem) {
        TLOG_WARN(
            "The log cannot be written to {}_0.log, nor to the user's folder for logs, so it goes to the "
            "standard error stream",
            wanted.string());
    }
    return {std::move(settings), std::move(version)};
}

std::uint64_t SecondsSince(std::chrono::steady_clock::time_point then) {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - then).count());
}

void AddWatching(AgentStatus& status, const BrowserURLWatcher& watcher,
                 const cmn::UserAgentXPCClient& client) {
    status.services.push_back({cmn::kUserAgentMachServiceName, client.connected()});
    for (BrowserURLWatcher::Watched& browser : watcher.watched()) {
        status.browsers.push_back(
            {std::move(browser.name), browser.pid, std::nullopt, std::move(browser.url)});
        if (browser.readSince) {
            status.browsers.back().readForSeconds = SecondsSince(*browser.readSince);
        }
    }
    if (const auto report = client.lastReport()) {
        status.lastReport = {report->browser, SecondsSince(report->when), report->url};
    }
}

// Owns neither of the two: it may be asked when they have gone.
StatusSource StatusOf(std::string version, const std::weak_ptr<BrowserURLWatcher>& watcher,
                      const std::weak_ptr<cmn::UserAgentXPCClient>& client) {
    return [version = std::move(version), watcher, client,
            started = std::chrono::steady_clock::now()](AgentStatus& status) {
        status.version = version;
        status.pid = cmn::GetPID();
        status.runningForSeconds = SecondsSince(started);
        const auto watching = watcher.lock();
        const auto reporting = client.lock();
        if (watching && reporting) {
            AddWatching(status, *watching, *reporting);
        }
    };
}

int Run(AgentPlatform& platform, cmn::ServiceOwners serviceOwners, const std::string& version) {
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
    return platform.runApplication(StatusOf(version, watcher, client));
}

// The message is deliberately used as the format text, so braces in it are interpreted and may make it fail.
void LogStartFailure(const std::exception& error) {
    try {
        LogFull(LogLevel::Error, __FILE__, __LINE__, __func__, fmt::format(fmt::runtime(error.what())));
    } catch (const fmt::format_error& formatError) {
        TLOG_ERROR("A start-up failure could not be formatted: {} -- {}", formatError.what(), error.what());
    }
}

int EndWithFailuresLogged(const std::function<int()>& run) {
    try {
        return run();
    } catch (const std::exception& error) {
        // The log's own place may not be known yet.
        cmn::SystemLog(std::string("TessarinUserAgent did not start -- ") + error.what());
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
        const Start start = StartLog(platform);
        return Run(platform, cmn::OwnersOf(start.settings), start.version);
    });
}

int ReportStartFailure(AgentFacts& facts, const std::exception_ptr& failure) {
    return EndWithFailuresLogged([&]() -> int {
        StartLog(facts);
        std::rethrow_exception(failure);
    });
}

}  // namespace useragent
