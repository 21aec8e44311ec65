#pragma once

#import "interface/AppDelegate.h"
#include "useragent/AppDelegate.h"

namespace useragent {

// What the portable delegate drives, made of AppKit's objects. Main thread.
class AppKitInterface final : public ApplicationInterface {
 public:
    // Holds the delegate weakly: it owns this object.
    explicit AppKitInterface(::AppDelegate* delegate) : delegate_(delegate) {}

    std::shared_ptr<StatusItem> createStatusItem(std::function<void()> menuNeedsUpdate) override;
    std::unique_ptr<PropertiesWindow> createPropertiesWindow(std::function<void()> willClose) override;
    void scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> tick) override;

 private:
    __weak ::AppDelegate* const delegate_;
};

}  // namespace useragent
