#include <QAccessible>
#include <QApplication>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
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

// Whether the session bus answers. Returns early on SIGTERM. Changes the environment, so it comes before the
// threads that stay.
bool LeaveOutWhatDoesNotAnswer(const std::string& sessionBus) {
    const auto goOn = [] { return useragent::g_run.load(); };
    const bool busAnswers = useragent::SessionBusAnswers(sessionBus, goOn);
    if (!busAnswers) {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    }
    // Watching browsers needs no display of our own.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !useragent::DisplayAnswers(goOn)) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    return busAnswers;
}

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
    const bool busAnswers = LeaveOutWhatDoesNotAnswer(sessionBus.address);
    if (!useragent::g_run) {
        return 0;
    }
    QApplication application(argc, argv);
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
    useragent::LinuxAgentPlatform platform(application, accessibility, sessionBus, service, request);
    return useragent::RunAgent(platform);
}

}  // namespace

int main(int argc, char** argv) {
    InstallLogCrashHandlers();
    try {
        useragent::HandleSigterm();
        return Run(argc, argv);
    } catch (const std::exception&) {
        useragent::AgentFacts facts;
        return useragent::ReportStartFailure(facts, std::current_exception());
    }
}
