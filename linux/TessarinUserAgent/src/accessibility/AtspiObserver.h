#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "accessibility/AtspiCore.h"
#include "useragent/Accessibility.h"

namespace useragent {

class AtspiObserver final : public AXObserver {
 public:
    AtspiObserver(std::weak_ptr<AtspiCore> core, std::int32_t pid, AXObserverCallback callback);
    ~AtspiObserver() override;

    AXError addNotification(const AXElementRef& element, const std::string& notification) override;
    void addToMainRunLoop() override { setDelivering(true); }
    void removeFromMainRunLoop() override { setDelivering(false); }

 private:
    void setDelivering(bool delivering);

    const std::weak_ptr<AtspiCore> core_;
    const std::int32_t pid_;
    const AXObserverCallback callback_;

    std::mutex mutex_;  // guards what follows
    std::vector<AtspiSubscription::Ptr> subscriptions_;
    bool delivering_ = false;
};

}  // namespace useragent
