#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "accessibility/AccessibilityBus.h"
#include "useragent/WindowList.h"
#include "windowlist/AtspiSurvey.h"

namespace useragent {

// The titled frames that browsers show on the accessibility bus; who was active last is in front, the order
// of the others is the registry's. For desktops without a readable window list. A browser that does not
// answer keeps what it showed last. Other applications are asked for their name and for nothing else, and
// each for that only until it is known: a question wakes a program up.
class AtspiWindowList final : public WindowList {
 public:
    // `browsers` are the product's names of those that count.
    AtspiWindowList(std::weak_ptr<AccessibilityBus> bus, std::vector<std::string> browsers)
        : bus_(std::move(bus)), browsers_(std::move(browsers)) {}

    std::optional<std::vector<WindowInfo>> copyOnScreenWindows() override;

 private:
    const std::weak_ptr<AccessibilityBus> bus_;
    const std::vector<std::string> browsers_;
    std::weak_ptr<Session> session_;
    AtspiApplicationRecords records_;  // of that session
    std::uint64_t looks_ = 0;
};

}  // namespace useragent
