#pragma once

#include "useragent/Agent.h"

namespace useragent {

// The one place that makes the agent's real objects on macOS. Main thread.
class MacAgentPlatform final : public AgentPlatform {
 public:
    // The arguments of `main`, which outlive this object.
    MacAgentPlatform(int argc, const char** argv) : argc_(argc), argv_(argv) {}

    std::shared_ptr<Accessibility> accessibility() override;
    std::shared_ptr<WindowList> windowList() override;
    std::shared_ptr<cmn::Dispatch> dispatch() override;
    std::shared_ptr<cmn::XPCTransport> transport() override;
    std::shared_ptr<cmn::Semaphore> pollingPause() override;
    int runApplication(StatusSource status) override;

 private:
    const int argc_;
    const char** const argv_;
    std::shared_ptr<Accessibility> accessibility_;
    std::shared_ptr<cmn::Dispatch> dispatch_;
};

}  // namespace useragent
