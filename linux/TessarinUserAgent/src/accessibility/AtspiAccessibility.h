#pragma once

#include <memory>

#include "accessibility/AtspiSettings.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "useragent/Accessibility.h"

namespace useragent {

struct AtspiCore;
class AccessibilityPrompt;

// Reads applications over the desktop's accessibility bus. To be made on the main thread, after the
// QCoreApplication, and destroyed there; observers may outlive it, silently.
class AtspiAccessibility final : public Accessibility {
 public:
    AtspiAccessibility(std::shared_ptr<cmn::LinuxDispatch> dispatch, const AtspiSettings& settings);
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
    void prepare(const std::vector<std::int32_t>& pids) override;

    // For what else asks over the same bus.
    std::weak_ptr<AtspiCore> core() const { return core_; }

 private:
    const std::shared_ptr<AtspiCore> core_;
    const std::unique_ptr<AccessibilityPrompt> prompt_;
};

}  // namespace useragent
