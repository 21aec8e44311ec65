#pragma once

#include "useragent/AppMenu.h"

namespace useragent {

// System Settings (before macOS 13 System Preferences).
class MacSettingsPanes final : public SettingsPanes {
 public:
    void openFullDiskAccess() override;
    void openAccessibility() override;
};

}  // namespace useragent
