#include "useragent/AppMenu.h"

#include <exception>
#include <utility>

#include "common/log.h"

namespace useragent {

namespace {

std::string StateText(const char* prefix, bool on) {
    return std::string(prefix) + (on ? "On" : "Off");
}

MenuItemContent FullDiskAccessContent(bool granted) {
    const std::string title = StateText("Full disk access: ", granted);
    return granted ? MenuItemContent{title} : MenuItemContent{title + " \U0001F6AB", true};
}

}  // namespace

AppMenu::AppMenu(MenuItems items, Environment environment)
    : items_(std::move(items)), environment_(std::move(environment)) {}

void AppMenu::updateMenu(bool fullDiskAccess) {
    items_.fulldiskItem->setContent(FullDiskAccessContent(fullDiskAccess));
    // Only missing full disk access is red: without the others the product still protects files.
    items_.accessibilityItem->setContent(
        {StateText("Accessibility: ", environment_.accessibility->isProcessTrusted()), false,
         MenuImage::accessibility});
    items_.finderItem->setContent(
        {StateText("Finder Extension: ", environment_.extension->isExtensionEnabled())});
    items_.versionItem->setContent({"v. " + agentVersion()});
}

std::string AppMenu::agentVersion() const {
    try {
        return environment_.agentProduct().Version;
    } catch (const std::exception& e) {
        TLOG_WARN("The version of the agent is not known: {}", e.what());
        return "????";
    }
}

void AppMenu::option1Selected() {
    environment_.panes->openFullDiskAccess();
}

void AppMenu::option2Selected() {
    environment_.panes->openAccessibility();
}

void AppMenu::option3Selected() {
    environment_.extension->showExtensionManagementInterface();
}

}  // namespace useragent
