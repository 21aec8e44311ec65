#pragma once

#include "useragent/Accessibility.h"
#include "useragent/Deadlines.h"
#include "useragent/ObservedBrowsers.h"
#include "useragent/SilentProcesses.h"

namespace useragent {

// The accessibility interface of macOS. Any thread.
class MacAccessibility final : public Accessibility {
 public:
    // Sets the deadline of every accessibility call of this process.
    MacAccessibility();

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override;
    AXElementRef createApplication(std::int32_t pid) override;
    AXError getPid(const AXElementRef& element, std::int32_t& pid) override;
    AXError createObserver(std::int32_t pid, AXObserverCallback callback,
                           std::unique_ptr<AXObserver>& observer) override;
    bool isProcessTrusted() override;
    bool isProcessTrustedWithPrompt() override;
    void prepare(const std::vector<WindowInfo>& browsers) override;
    void runCycle(const std::function<void()>& cycle) override;
    std::chrono::nanoseconds searchDeadline() const override { return kURLFieldSearchDeadline; }

 private:
    SilentProcesses silent_;
    ObservedBrowsers observed_;
};

}  // namespace useragent
