#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/Listener.h"
#include "useragent/Accessibility.h"

namespace useragent {

// The notifications of one process.
class AtspiObserver final : public AXObserver {
 public:
    AtspiObserver(const std::shared_ptr<AccessibilityBus>& bus, std::int32_t pid, AXObserverCallback callback)
        : bus_(bus), pid_(pid), listener_(std::make_shared<Listener>(bus->dispatch(), std::move(callback))) {}
    ~AtspiObserver() override { listener_->close(); }

    AXError addNotification(const AXElementRef& element, const std::string& notification) override;
    void addToMainRunLoop() override { listener_->setDelivering(true); }
    void removeFromMainRunLoop() override { listener_->setDelivering(false); }

 private:
    const std::weak_ptr<AccessibilityBus> bus_;
    const std::int32_t pid_;
    const std::shared_ptr<Listener> listener_;
};

}  // namespace useragent
