#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/FakeAccessibility.h"
#include "useragent/AppDelegate.h"

namespace fake {

class SettingsPanes : public useragent::SettingsPanes {
 public:
    void openFullDiskAccess() override { opened.emplace_back("full disk access"); }
    void openAccessibility() override { opened.emplace_back("accessibility"); }

    std::vector<std::string> opened;
};

class FileManagerExtension : public useragent::FileManagerExtension {
 public:
    bool isExtensionEnabled() override { return enabled; }
    void showExtensionManagementInterface() override { ++shown; }

    bool canBeEnabled() override { return possible; }

    bool enabled = true;
    bool possible = true;
    int shown = 0;
};

// Keeps what is to be shown. Nothing is told of it but by the test.
class Notices : public useragent::Notices {
 public:
    struct Shown {
        useragent::Notice notice;
        std::function<void(const std::string& failure)> done;
        std::function<void()> pressed;
    };
    void show(const useragent::Notice& notice, std::function<void(const std::string& failure)> done,
              std::function<void()> pressed) override {
        shown.push_back({notice, std::move(done), std::move(pressed)});
    }

    std::vector<Shown> shown;
};

// An AppMenu on fakes.
struct Menu {
    useragent::AppMenu make() { return useragent::AppMenu({accessibility, extension, panes, agentProduct}); }

    std::shared_ptr<Accessibility> accessibility = std::make_shared<Accessibility>();
    std::shared_ptr<FileManagerExtension> extension = std::make_shared<FileManagerExtension>();
    std::shared_ptr<SettingsPanes> panes = std::make_shared<SettingsPanes>();
    std::function<cmn::proto::TSettingsProduct()> agentProduct = [] {
        cmn::proto::TSettingsProduct product;
        product.Version = "4.5.6";
        return product;
    };
};

// Keeps what the delegate shows. Windows are closed by their `willClose`.
class Interface : public useragent::ApplicationInterface {
 public:
    struct Window {
        std::unique_ptr<useragent::FileFiltersViewController> controller;  // null until it is shown
        std::function<void()> willClose;
        std::string activationToken;
        bool destroyed = false;
    };

    std::shared_ptr<useragent::StatusItem> createStatusItem(std::function<void()> menuNeedsUpdate) override {
        openMenu = std::move(menuNeedsUpdate);
        return std::make_shared<Item>(*this);
    }
    std::unique_ptr<useragent::PropertiesWindow> createPropertiesWindow(
        std::function<void()> willClose) override {
        onCreateWindow();
        if (!makesWindows) {
            return nullptr;
        }
        windows.push_back(std::make_shared<Window>());
        windows.back()->willClose = std::move(willClose);
        return std::make_unique<Handle>(*this, windows.back());
    }
    void scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> tick) override {
        timerInterval = interval;
        timerTick = std::move(tick);
    }

    const std::string& fullDiskAccessTitle() const { return menus.back().front().content.title; }

    std::vector<useragent::StatusImage> images;
    std::vector<useragent::MenuItems> menus;  // the first is that of the launch
    bool visible = true;
    useragent::IconPlace place = useragent::IconPlace::none;
    std::vector<std::string> order;  // "image", "menu" and "visibility" as they are set
    std::function<void()> openMenu;
    bool makesWindows = true;
    std::function<void()> onCreateWindow = [] {};
    std::function<void()> onShowWindow = [] {};
    std::vector<std::shared_ptr<Window>> windows;
    std::chrono::seconds timerInterval{};
    std::function<void()> timerTick;

 private:
    class Item : public useragent::StatusItem {
     public:
        explicit Item(Interface& owner) : owner_(owner) {}
        void setImage(useragent::StatusImage image) override {
            owner_.images.push_back(image);
            owner_.order.emplace_back("image");
        }
        void setMenu(const useragent::MenuItems& items) override {
            owner_.menus.push_back(items);
            owner_.order.emplace_back("menu");
        }
        void setVisible(bool shown) override {
            owner_.visible = shown;
            owner_.order.emplace_back("visibility");
        }
        useragent::IconPlace place() const override { return owner_.place; }

     private:
        Interface& owner_;
    };
    class Handle : public useragent::PropertiesWindow {
     public:
        Handle(Interface& owner, std::shared_ptr<Window> window)
            : owner_(owner), window_(std::move(window)) {}
        ~Handle() override { window_->destroyed = true; }
        void show(std::unique_ptr<useragent::FileFiltersViewController> controller,
                  const std::string& activationToken) override {
            owner_.onShowWindow();
            window_->controller = std::move(controller);
            window_->activationToken = activationToken;
        }

     private:
        Interface& owner_;
        const std::shared_ptr<Window> window_;
    };
};

}  // namespace fake
