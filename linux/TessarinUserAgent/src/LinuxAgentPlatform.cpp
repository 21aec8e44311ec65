#include "LinuxAgentPlatform.h"

#include <cstdlib>
#include <string>
#include <utility>

#include "accessibility/AtspiAccessibility.h"
#include "accessibility/EarlyLooks.h"
#include "common/ScopedAction.h"
#include "common/bundle.h"
#include "common/log.h"
#include "filemanagers/LinuxFileManagerExtension.h"
#include "interface/DesktopNotices.h"
#include "interface/QtApplicationInterface.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "permissions/LinuxSettingsPanes.h"
#include "useragent/AgentNames.h"
#include "windowlist/AtspiWindowList.h"
#include "windowlist/LinuxWindowList.h"

namespace useragent {

namespace {

StatusSource WithSessionType(StatusSource source) {
    const char* const type = std::getenv("XDG_SESSION_TYPE");
    return
        [source = std::move(source), type = std::string(type != nullptr ? type : "")](AgentStatus& status) {
            source(status);
            status.sessionType = type;
        };
}

}  // namespace

LinuxAgentPlatform::LinuxAgentPlatform(QApplication& application, AtspiSettings accessibility,
                                       SessionBusPlace sessionBus, ApplicationService& service,
                                       LaunchRequest launch, Display display)
    : stopper_(application),
      accessibilitySettings_(std::move(accessibility)),
      sessionBus_(std::move(sessionBus)),
      service_(service),
      launch_(std::move(launch)),
      display_(std::move(display)),
      xWindows_(CreateXWindowList(display_.isX11)),
      polledWindows_(std::make_shared<PolledWindowList>(xWindows_)) {}

LinuxAgentPlatform::~LinuxAgentPlatform() {
    // Tasks that wait to run again, such as a reconnect, own what owns these objects.
    if (dispatch_) {
        dispatch_->stop();
    }
}

std::shared_ptr<Accessibility> LinuxAgentPlatform::accessibility() {
    return atspi();
}

std::shared_ptr<WindowList> LinuxAgentPlatform::windowList() {
    if (xWindows_) {
        return polledWindows_;
    }
    return std::make_shared<AtspiWindowList>(atspi()->bus(), BrowserList());
}

std::shared_ptr<cmn::Dispatch> LinuxAgentPlatform::dispatch() {
    return queues();
}

std::shared_ptr<cmn::XPCTransport> LinuxAgentPlatform::transport() {
    return std::make_shared<cmn::DBusXPCTransport>(queues());
}

std::shared_ptr<cmn::Semaphore> LinuxAgentPlatform::pollingPause() {
    if (!pause_) {
        pause_ = queues()->createSemaphore(0);
    }
    return pause_;
}

int LinuxAgentPlatform::runApplication(StatusSource status) {
    // Whatever ends this: the next launch becomes an agent of its own.
    const cmn::ScopedAction release([this] { service_.release(); });
    if (!service_.refusal().empty()) {
        TLOG_WARN("The session bus does not give the agent its name: {}", service_.refusal());
    }
    if (!display_.whyNothingIsShown.empty()) {
        TLOG_WARN("{}", display_.whyNothingIsShown);
    }
    const auto resources = cmn::BundlePathOf(executablePath()) / "Contents/Resources";
    const auto delegate = MakeAppDelegate(
        {std::make_shared<QtApplicationInterface>(sessionBus_, display_.whyNothingIsShown.empty()), atspi(),
         std::make_shared<LinuxFileManagerExtension>(resources / "file-managers"),
         std::make_shared<LinuxSettingsPanes>(resources / "help" / "permissions.html"),
         std::make_shared<DesktopNotices>(sessionBus_), queues(), transport(),
         WithSessionType(std::move(status))});
    delegate->openURLs(launch_.urls, launch_.activationToken);
    service_.setHandler([delegate](const LaunchRequest& request, ApplicationService::Done done) {
        delegate->openURLs(request.urls, request.activationToken, std::move(done));
    });
    service_.setStatusHandler([delegate](bool withAddresses, std::function<void(const std::string&)> done) {
        delegate->gatherStatus(withAddresses, std::move(done));
    });
    delegate->applicationDidFinishLaunching();
    const int exitCode = QCoreApplication::exec();
    service_.release();  // before requests are refused: who asked claims the name then
    if (!delegate->applicationWillEnd([] { QCoreApplication::exit(); })) {
        QCoreApplication::exec();
    }
    return exitCode;
}

const std::shared_ptr<AtspiAccessibility>& LinuxAgentPlatform::atspi() {
    if (!accessibility_) {
        AtspiSettings settings = accessibilitySettings_;
        settings.earlyLooks =
            std::make_shared<EarlyLooks>(sessionBus_.loop, [pause = pollingPause()] { pause->signal(); });
        settings.told = ToldOnce::OfThisUser();
        if (xWindows_) {
            settings.screen = {[windows = xWindows_](std::int32_t pid) { return WindowsOf(pid, *windows); },
                               [windows = polledWindows_] { return windows->isOutdated(); },
                               [windows = xWindows_, loop = sessionBus_.loop](ScreenEvents told) {
                                   windows->tellChanges(loop, std::move(told));
                               }};
        }
        accessibility_ =
            std::make_shared<AtspiAccessibility>(queues(), std::move(settings), sessionBus_.loop);
    }
    return accessibility_;
}

const std::shared_ptr<cmn::LinuxDispatch>& LinuxAgentPlatform::queues() {
    if (!dispatch_) {
        dispatch_ =
            std::make_shared<cmn::LinuxDispatch>(cmn::LinuxDispatch::kDefaultThreads, sessionBus_.loop);
    }
    return dispatch_;
}

}  // namespace useragent
