#pragma once

#import <AppKit/AppKit.h>

#include <optional>

#include "useragent/AppMenu.h"

namespace useragent {

// One item of the status menu. Main thread.
class AppKitMenuItem final : public MenuItem {
 public:
    // Holds the item weakly: its menu owns it.
    explicit AppKitMenuItem(NSMenuItem* item) : item_(item) {}

    void setContent(const MenuItemContent& content) override;

 private:
    __weak NSMenuItem* const item_;
    std::optional<MenuItemContent> shown_;
};

}  // namespace useragent
