#pragma once

#include "useragent/WindowList.h"

namespace useragent {

// The window server's list.
class MacWindowList final : public WindowList {
 public:
    std::optional<std::vector<WindowInfo>> copyOnScreenWindows() override;
};

}  // namespace useragent
