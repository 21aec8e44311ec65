#pragma once

#include <memory>

#include "accessibility/AtspiSettings.h"
#include "linux_bus/Loop.h"
#include "useragent/Accessibility.h"
#include "usercommon/Dispatch.h"

namespace useragent {

class AccessibilityBus;
class AccessibilityPrompt;

// Reads applications over the desktop's accessibility bus. Observers may outlive it, silently.
class AtspiAccessibility final : public Accessibility {
 public:
    // The bus's connections live on the loop.
    AtspiAccessibility(std::shared_ptr<cmn::Dispatch> dispatch, const AtspiSettings& settings,
                       std::shared_ptr<cmn::bus::Loop> loop = std::make_shared<cmn::bus::Loop>());
    ~AtspiAccessibility() override;
    AtspiAccessibility(const AtspiAccessibility&) = delete;
    AtspiAccessibility& operator=(const AtspiAccessibility&) = delete;

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override;
    AXElementRef createApplication(std::int32_t pid) override;
    AXError getPid(const AXElementRef& element, std::int32_t& pid) override;
    AXError createObserver(std::int32_t pid, AXObserverCallback callback,
                           std::unique_ptr<AXObserver>& observer) override;
    bool isProcessTrusted() override;
    bool isProcessTrustedWithPrompt() override;
    void prepare(const std::vector<WindowInfo>& browsers) override;
    std::chrono::nanoseconds searchDeadline() const override { return kURLFieldSearchDeadline; }

    // For what else asks over the same bus.
    std::weak_ptr<AccessibilityBus> bus() const { return bus_; }

 private:
    const std::shared_ptr<AccessibilityBus> bus_;
    const std::shared_ptr<AccessibilityPrompt> prompt_;
};

}  // namespace useragent
