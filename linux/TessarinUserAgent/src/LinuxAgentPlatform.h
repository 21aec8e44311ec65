#pragma once

#include <QApplication>
#include <memory>
#include <string>

#include "RunLoop.h"
#include "accessibility/AtspiSettings.h"
#include "interface/ApplicationService.h"
#include "useragent/Agent.h"
#include "useragent/AppDelegate.h"

namespace cmn {
class LinuxDispatch;
namespace bus {
class Loop;
}
}  // namespace cmn

namespace useragent {

class AtspiAccessibility;
class PolledWindowList;
class XcbWindowList;

// The one place that makes the agent's real objects on Linux. Main thread.
class LinuxAgentPlatform : public AgentPlatform {
 public:
    // What was found out about the display before there was a log.
    struct Display {
        bool isX11 = false;             // the X server answers
        std::string whyNothingIsShown;  // empty when windows can be shown
    };

    // `service` holds the name of the application, `launch` what this launch was asked to open.
    LinuxAgentPlatform(QApplication& application, AtspiSettings accessibility, SessionBusPlace sessionBus,
                       ApplicationService& service, LaunchRequest launch, Display display);
    ~LinuxAgentPlatform() override;

    std::shared_ptr<Accessibility> accessibility() override;
    std::shared_ptr<WindowList> windowList() override;
    std::shared_ptr<cmn::Dispatch> dispatch() override;
    std::shared_ptr<cmn::XPCTransport> transport() override;
    std::shared_ptr<cmn::Semaphore> pollingPause() override;
    int runApplication(StatusSource status) override;

 private:
    const std::shared_ptr<AtspiAccessibility>& atspi();
    const std::shared_ptr<cmn::LinuxDispatch>& queues();

    RunLoopStopper stopper_;
    const AtspiSettings accessibilitySettings_;
    const SessionBusPlace sessionBus_;
    ApplicationService& service_;
    const LaunchRequest launch_;
    const Display display_;
    const std::shared_ptr<XcbWindowList> xWindows_;  // null where no X server lists all windows
    const std::shared_ptr<PolledWindowList> polledWindows_;
    std::shared_ptr<cmn::LinuxDispatch> dispatch_;
    std::shared_ptr<cmn::Semaphore> pause_;
    std::shared_ptr<AtspiAccessibility> accessibility_;
};

}  // namespace useragent
