#pragma once

#include <QString>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "accessibility/AtspiCore.h"
#include "useragent/WindowList.h"

namespace useragent {

// The frames that applications show on the accessibility bus; those of the active application are in front,
// the order of the others is the registry's. For desktops without a readable window list. An application that
// does not answer keeps what it showed last.
class AtspiWindowList final : public WindowList {
 public:
    explicit AtspiWindowList(std::weak_ptr<AtspiCore> core) : core_(std::move(core)) {}

    std::optional<std::vector<WindowInfo>> copyOnScreenWindows() override;

    struct Application {
        WindowInfo owner;
        std::size_t frames = 0;  // on screen
        bool isActive = false;
    };

 private:
    const std::weak_ptr<AtspiCore> core_;
    std::uint64_t epoch_ = 0;
    std::map<QString, Application> lastSeen_;  // by bus name, of that epoch
};

}  // namespace useragent
