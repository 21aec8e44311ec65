#include <malloc.h>

#include <QAccessible>
#include <QApplication>
#include <array>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LinuxAgentPlatform.h"
#include "RunLoop.h"
#include "SessionSurroundings.h"
#include "common/ScopedAction.h"
#include "common/SystemUtils.h"
#include "common/log.h"
#include "filemanagers/FileManagerCommand.h"
#include "linux_bus/Loop.h"
#include "linux_bus/WellKnown.h"
#include "statusitem/StatusIcons.h"
#include "useragent/Agent.h"

namespace {

using useragent::ApplicationService;
using useragent::LaunchRequest;

// Long enough for an agent that is just starting.
constexpr std::chrono::seconds kHandOverDeadline{20};

constexpr int kMemoryPools = 2;

// Whether the session bus answers. Returns early on SIGTERM. Changes the environment, so it comes before the
// threads that stay.
bool LeaveOutSessionBusThatDoesNotAnswer(const std::string& sessionBus) {
    const bool answers = useragent::SessionBusAnswers(sessionBus, [] { return useragent::g_run.load(); });
    if (!answers) {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    }
    return answers;
}

// The toolkit is told the platform as an argument: a variable would also be told to the programs that the
// agent starts.
struct ToolkitArguments {
    ToolkitArguments(std::string program, std::string platforms)
        : texts{std::move(program), "-platform", std::move(platforms)} {}

    std::array<std::string, 3> texts;
    std::array<char*, 4> values{texts[0].data(), texts[1].data(), texts[2].data(), nullptr};
    int count = 3;
};

void SetUp() {
    QCoreApplication::setApplicationName("TessarinUserAgent");
    QGuiApplication::setDesktopFileName(useragent::kApplicationName);
    QApplication::setWindowIcon(useragent::ApplicationIcon());
    QApplication::setQuitOnLastWindowClosed(false);
}

int Run(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments.front() == "--file-manager-action") {
        useragent::LeaveSigtermToTheSystem();
        return useragent::RunFileManagerCommand({arguments.begin() + 1, arguments.end()}, std::cout,
                                                std::cerr);
    }
    LaunchRequest request{arguments, useragent::TakeActivationToken()};
    // Before the environment is changed: what is ours finds its bus also when it comes later.
    const useragent::AtspiSettings accessibility = useragent::SettingsOfThisSession();
    useragent::SessionBusPlace sessionBus{nullptr, cmn::bus::SessionBusAddress()};
    useragent::RequireToolkitThreads();
    const bool busAnswers = LeaveOutSessionBusThatDoesNotAnswer(sessionBus.address);
    const useragent::Displays displays =
        useragent::DisplaysThatAnswer([] { return useragent::g_run.load(); });
    if (!useragent::g_run) {
        return 0;
    }
    const std::string wanted = qEnvironmentVariable("QT_QPA_PLATFORM").toStdString();
    const std::string tried = useragent::PlatformsToTry(wanted, displays);
    ToolkitArguments toolkit{argv[0], tried};
    QApplication application(toolkit.count, toolkit.values.data());
    SetUp();

    sessionBus.loop = std::make_shared<cmn::bus::Loop>();
    const cmn::ScopedAction stop([&] { sessionBus.loop->stop(); });  // before the toolkit goes
    ApplicationService service(sessionBus,
                               busAnswers ? ApplicationService::kConnectPatience : std::chrono::seconds(0));
    const ApplicationService::Launch launch = service.claimOrHandOver(request, kHandOverDeadline, [] {
        useragent::LeaveSigtermToTheSystem();  // the first may take its time
        return useragent::g_run.load();
    });
    if (launch.role == ApplicationService::Role::second) {
        if (!launch.failure.empty()) {
            cmn::SystemLog("The running agent did not take the request -- " + launch.failure);
            std::cerr << "TessarinUserAgent: the running agent did not take the request: " << launch.failure
                      << '\n';
        }
        return launch.failure.empty() ? 0 : 1;
    }
    useragent::HandleSigterm();  // also when the first left after all
    // As the event loop does when it begins: the toolkit makes its thread for message buses here, and later
    // there may be none left for it.
    QAccessible::setRootObject(&application);
    const std::string taken = QGuiApplication::platformName().toStdString();
    useragent::LinuxAgentPlatform platform(
        application, accessibility, sessionBus, service, request,
        {displays.x11, useragent::WhyNothingIsShown(wanted, tried, taken)});
    return useragent::RunAgent(platform);
}

}  // namespace

int main(int argc, char** argv) {
    // Each thread's own pool of memory would keep what its busiest moment took; the agent is idle mostly.
    ::mallopt(M_ARENA_MAX, kMemoryPools);
    InstallLogCrashHandlers();
    SetLogJournal(true);
    try {
        useragent::HandleSigterm();
        return Run(argc, argv);
    } catch (const std::exception&) {
        useragent::AgentFacts facts;
        return useragent::ReportStartFailure(facts, std::current_exception());
    }
}
