#pragma once

#include <memory>

#include "useragent/Accessibility.h"
#include "useragent/Deadlines.h"
#include "useragent/ObservedBrowsers.h"
#include "useragent/PreparedWindows.h"
#include "useragent/SilentProcesses.h"
#include "usercommon/Dispatch.h"

namespace useragent {

// The accessibility interface of macOS. Any thread.
class MacAccessibility final : public Accessibility {
 public:
    // Sets the deadline of every accessibility call of this process.
    explicit MacAccessibility(std::shared_ptr<cmn::Dispatch> dispatch);

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
    // What asks the applications; the queue's tasks may use it after this object.
    const std::shared_ptr<SilentProcesses> silent_;
    const std::shared_ptr<AccessibilityReader> reader_;
    const std::shared_ptr<PreparedWindows> prepared_;
    ObservedBrowsers observed_;
};

}  // namespace useragent
