#pragma once

#include <QCoreApplication>

#include "RunLoop.h"
#include "useragent/Agent.h"

namespace cmn {
class LinuxDispatch;
}

namespace useragent {

class AtspiAccessibility;

// The one place that makes the agent's real objects on Linux. Main thread.
class LinuxAgentPlatform : public AgentPlatform {
 public:
    LinuxAgentPlatform(int& argc, char** argv);
    ~LinuxAgentPlatform() override;

    cmn::proto::TSettings settings() override;
    std::filesystem::path executablePath() override;
    std::optional<std::string> bundleShortVersion() override;
    std::shared_ptr<Accessibility> accessibility() override;
    std::shared_ptr<WindowList> windowList() override;
    std::shared_ptr<cmn::Dispatch> dispatch() override;
    std::shared_ptr<cmn::XPCTransport> transport() override;
    std::function<void(std::chrono::nanoseconds)> sleeper() override;
    int runApplication() override;

 private:
    const std::shared_ptr<AtspiAccessibility>& atspi();
    const std::shared_ptr<cmn::LinuxDispatch>& queues();

    QCoreApplication application_;
    RunLoopStopper stopper_;
    std::shared_ptr<cmn::LinuxDispatch> dispatch_;
    std::shared_ptr<AtspiAccessibility> accessibility_;
};

}  // namespace useragent
