#include "useragent/Agent.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <exception>

#include "common/causes.h"
#include "common/log.h"
#include "common/utf8.h"
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

std::filesystem::path LogStem(const std::filesystem::path& executable) {
    // Executable, its folder, Contents, the bundle: the fourth parent holds the bundle.
    return executable.parent_path().parent_path().parent_path().parent_path() / "com.tessarin.UserAgent";
}

namespace {

int Run(AgentPlatform& platform) {
    SetLogLevel(LogLevelFromString(platform.settings().LogLevel));
    SetLogPath(LogStem(platform.executablePath()).c_str());
    LogStartMessage();
    TLOG_INFO("Starting TessarinUserAgent {}", platform.bundleShortVersion().value_or("????"));

    const std::shared_ptr<Accessibility> accessibility = platform.accessibility();
    RequestAccesibilityPermission(*accessibility);

    const std::shared_ptr<BrowserURLWatcher> watcher = CreateBrowserURLWatcher(
        BrowserList(), WatcherPorts{accessibility, platform.windowList(), platform.sleeper(),
                                    [] { return std::chrono::steady_clock::now(); }});
    const std::shared_ptr<cmn::Dispatch> dispatch = platform.dispatch();
    const auto client = std::make_shared<cmn::UserAgentXPCClient>(
        [watcher](const std::string& browser) {
            std::string url = watcher->getURL(browser);
            TLOG_DEBUG("{}", cmn::EscapeControls(url));
            return url;
        },
        dispatch, platform.transport());
    watcher->setXPCClient(client);
    // The locals go in the reverse order of their creation: the client first, then the watcher.
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

}  // namespace

int RunAgent(AgentPlatform& platform) {
    std::signal(SIGTERM, SigtermHandler);
    try {
        return Run(platform);
    } catch (const std::exception& error) {
        LogStartFailure(error);
        for (const std::string& cause : cmn::CausesOf(error)) {
            TLOG_ERROR("caused by: {}", cause);
        }
    }
    return 0;
}

}  // namespace useragent
