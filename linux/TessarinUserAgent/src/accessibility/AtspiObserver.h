#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/Subscription.h"
#include "useragent/Accessibility.h"

namespace useragent {

// The notifications of one process, as one subscription each.
class AtspiObserver final : public AXObserver {
 public:
    AtspiObserver(std::weak_ptr<AccessibilityBus> bus, std::int32_t pid, AXObserverCallback callback)
        : bus_(std::move(bus)), pid_(pid), callback_(std::move(callback)) {}
    ~AtspiObserver() override;

    AXError addNotification(const AXElementRef& element, const std::string& notification) override;
    void addToMainRunLoop() override { setDelivering(true); }
    void removeFromMainRunLoop() override { setDelivering(false); }

 private:
    void setDelivering(bool delivering);

    const std::weak_ptr<AccessibilityBus> bus_;
    const std::int32_t pid_;
    const AXObserverCallback callback_;

    std::mutex mutex_;  // guards what follows
    std::vector<Subscription::Ptr> subscriptions_;
    bool delivering_ = false;
};

}  // namespace useragent
