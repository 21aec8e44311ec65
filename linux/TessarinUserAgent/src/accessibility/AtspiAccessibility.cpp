#include "accessibility/AtspiAccessibility.h"

#include <utility>

#include "accessibility/AccessibilityPrompt.h"
#include "accessibility/AtspiObserver.h"
#include "accessibility/AtspiReader.h"

namespace useragent {

AtspiAccessibility::AtspiAccessibility(std::shared_ptr<cmn::Dispatch> dispatch, const AtspiSettings& settings,
                                       std::shared_ptr<cmn::bus::Loop> loop)
    : bus_(std::make_shared<AccessibilityBus>(std::move(dispatch), std::move(loop), settings)),
      prompt_(std::make_shared<AccessibilityPrompt>(*bus_, settings.told)) {
    if (settings.screen.tellChanges) {
        const auto telling = [weak = std::weak_ptr(bus_)](void (AccessibilityBus::*what)()) {
            return [weak, what] {
                if (const auto bus = weak.lock()) {
                    ((*bus).*what)();
                }
            };
        };
        settings.screen.tellChanges(
            {telling(&AccessibilityBus::screenChanged), telling(&AccessibilityBus::screenRetitled)});
    }
}

AtspiAccessibility::~AtspiAccessibility() = default;

AXError AtspiAccessibility::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                               AXValue& value) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    if (!target) {
        return AXError::illegalArgument;
    }
    const cmn::bus::Deadline deadline = bus_->deadline();
    const std::shared_ptr<Session> session = bus_->session(deadline);
    return session ? AtspiReader(session, *target, deadline).read(attribute, value) : AXError::apiDisabled;
}

AXElementRef AtspiAccessibility::createApplication(std::int32_t pid) {
    return pid > 0 ? std::make_shared<AtspiElement>(pid) : nullptr;
}

AXError AtspiAccessibility::getPid(const AXElementRef& element, std::int32_t& pid) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    if (!target) {
        return AXError::illegalArgument;
    }
    pid = target->pid;
    return AXError::success;
}

AXError AtspiAccessibility::createObserver(std::int32_t pid, AXObserverCallback callback,
                                           std::unique_ptr<AXObserver>& observer) {
    if (pid <= 0 || !callback) {
        return AXError::illegalArgument;
    }
    observer = std::make_unique<AtspiObserver>(bus_, pid, std::move(callback));
    return AXError::success;
}

bool AtspiAccessibility::isProcessTrusted() {
    return bus_->check(bus_->deadline()) != nullptr;
}

bool AtspiAccessibility::isProcessTrustedWithPrompt() {
    const bool trusted = isProcessTrusted();
    if (!trusted) {
        prompt_->ask();
    }
    return trusted;
}

void AtspiAccessibility::prepare(const std::vector<WindowInfo>& browsers) {
    const cmn::bus::Deadline deadline = bus_->deadline();
    bus_->endCycle(cmn::bus::HalfWayTo(deadline),
                   [&](Session& session) { session.look(browsers, deadline); });
}

}  // namespace useragent
