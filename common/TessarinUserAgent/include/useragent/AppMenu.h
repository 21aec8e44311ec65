#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

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

// One item of the status menu.
struct MenuItem {
    MenuItemContent content;
    std::function<void()> selected;  // empty: there is nothing to select
};
using MenuItems = std::vector<MenuItem>;  // from top to bottom; how many never changes

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
    virtual bool canBeEnabled() = 0;        // whether there is a file manager for it; as above
    virtual void showExtensionManagementInterface() = 0;
};

// What the menu behind the status item shows and does. Main thread.
class AppMenu {
 public:
    struct Environment {
        std::shared_ptr<Accessibility> accessibility;
        std::shared_ptr<FileManagerExtension> extension;
        std::shared_ptr<SettingsPanes> panes;
        std::function<cmn::proto::TSettingsProduct()> agentProduct;  // the product record named "Agent"
    };
    explicit AppMenu(Environment environment);

    // Computes all contents anew. Before the first time there are titles only.
    void updateMenu(bool fullDiskAccess);

    // Full disk access, accessibility, Finder extension, version.
    const MenuItems& items() const { return items_; }
    // What it asks.
    const Environment& environment() const { return environment_; }

 private:
    using Content = std::function<MenuItemContent(bool fullDiskAccess)>;

    // `title` is shown until the first update.
    void add(std::string title, Content content, std::function<void()> selected);

    const Environment environment_;
    MenuItems items_;
    std::vector<Content> contents_;
};

}  // namespace useragent
