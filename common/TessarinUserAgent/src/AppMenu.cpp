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

// "????" when there is no product of the agent.
std::string AgentVersion(const std::function<cmn::proto::TSettingsProduct()>& agentProduct) {
    try {
        return agentProduct().Version;
    } catch (const std::exception& e) {
        TLOG_WARN("The version of the agent is not known: {}", e.what());
        return "????";
    }
}

}  // namespace

AppMenu::AppMenu(Environment environment) : environment_(std::move(environment)) {
    // From top to bottom. Only missing full disk access is red: without the others the product still protects
    // files.
    add("Full disk access", FullDiskAccessContent,
        [panes = environment_.panes] { panes->openFullDiskAccess(); });
    add(
        "Accessibility",
        [accessibility = environment_.accessibility](bool) {
            return MenuItemContent{StateText("Accessibility: ", accessibility->isProcessTrusted()), false,
                                   MenuImage::accessibility};
        },
        [panes = environment_.panes] { panes->openAccessibility(); });
    add(
        "Finder Extension",
        [extension = environment_.extension](bool) {
            return MenuItemContent{StateText("Finder Extension: ", extension->isExtensionEnabled())};
        },
        [extension = environment_.extension] { extension->showExtensionManagementInterface(); });
    add(
        "Tessarin User Agent",
        [product = environment_.agentProduct](bool) {
            return MenuItemContent{"v. " + AgentVersion(product)};
        },
        nullptr);
}

void AppMenu::add(std::string title, Content content, std::function<void()> selected) {
    items_.push_back({{std::move(title)}, std::move(selected)});
    contents_.push_back(std::move(content));
}

void AppMenu::updateMenu(bool fullDiskAccess) {
    for (std::size_t item = 0; item < items_.size(); ++item) {
        items_[item].content = contents_[item](fullDiskAccess);
    }
}

}  // namespace useragent
