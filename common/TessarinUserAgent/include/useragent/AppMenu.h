#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "common/proto_settings.h"
#include "useragent/Accessibility.h"

namespace useragent {

enum class MenuImage { none, accessibility };

// What one item of the menu shows. Text is UTF-8.
struct MenuItemContent {
    std::string title;
    bool isRed = false;  // the whole title, or a red mark where titles have no colour
    MenuImage image = MenuImage::none;
    bool operator==(const MenuItemContent&) const = default;
};

// One item of the status menu; the platform end rewrites it only where the content differs. Main thread.
class MenuItem {
 public:
    virtual ~MenuItem() = default;
    virtual void setContent(const MenuItemContent& content) = 0;
};

// The menu's items; the menu owns them. None is null.
struct MenuItems {
    std::shared_ptr<MenuItem> fulldiskItem;       // option1Selected
    std::shared_ptr<MenuItem> accessibilityItem;  // option2Selected
    std::shared_ptr<MenuItem> finderItem;         // option3Selected
    std::shared_ptr<MenuItem> versionItem;
};

// The places of the system where a missing permission is granted. Returns at once; failures are ignored, but
// for a log line. Main thread.
class SettingsPanes {
 public:
    virtual ~SettingsPanes() = default;
    virtual void openFullDiskAccess() = 0;
    virtual void openAccessibility() = 0;
};

// The product's entry in the context menu of the file manager. Main thread.
class FileManagerExtension {
 public:
    virtual ~FileManagerExtension() = default;
    virtual bool isExtensionEnabled() = 0;  // without waiting for anything
    virtual void showExtensionManagementInterface() = 0;
};

// The menu behind the status item. Main thread.
class AppMenu {
 public:
    struct Environment {
        std::shared_ptr<Accessibility> accessibility;
        std::shared_ptr<FileManagerExtension> extension;
        std::shared_ptr<SettingsPanes> panes;
        std::function<cmn::proto::TSettingsProduct()> agentProduct;  // the product record named "Agent"
    };
    AppMenu(MenuItems items, Environment environment);

    // Computes all items anew.
    void updateMenu(bool fullDiskAccess);

    void option1Selected();
    void option2Selected();
    void option3Selected();

 private:
    std::string agentVersion() const;  // "????" when there is no product of the agent

    const MenuItems items_;
    const Environment environment_;
};

}  // namespace useragent
