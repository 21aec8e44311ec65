#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "accessibility/AccessibilityBus.h"
#include "useragent/WindowList.h"

namespace useragent {

// The frames that applications show on the accessibility bus; those of the active application are in front,
// the order of the others is the registry's. For desktops without a readable window list. An application that
// does not answer keeps what it showed last.
class AtspiWindowList final : public WindowList {
 public:
    explicit AtspiWindowList(std::weak_ptr<AccessibilityBus> bus) : bus_(std::move(bus)) {}

    std::optional<std::vector<WindowInfo>> copyOnScreenWindows() override;

    struct Application {
        WindowInfo owner;
        std::size_t frames = 0;  // on screen
        bool isActive = false;
    };

 private:
    const std::weak_ptr<AccessibilityBus> bus_;
    std::weak_ptr<Session> session_;
    std::map<std::string, Application> lastSeen_;  // by bus name, in that session
};

}  // namespace useragent
