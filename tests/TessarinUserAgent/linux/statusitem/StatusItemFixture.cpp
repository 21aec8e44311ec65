#include "StatusItemFixture.h"

#include "useragent/AppMenu.h"
#include "useragent/StatusImage.h"

namespace statusitem {
namespace {

fake::PrivateBus* g_sessionBus = nullptr;

}  // namespace

Session::Session() {
    g_sessionBus = &bus_;
    if (qEnvironmentVariableIsSet(kWithoutBus)) {
        bus_.kill();
    }
    qputenv("DISPLAY", display_.display().c_str());
    qputenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str());
    qputenv("QT_QPA_PLATFORM", "xcb");
    // Those of the developer's own desktop.
    for (const char* const name : {"DESKTOP_SESSION", "QT_QPA_PLATFORMTHEME", "QT_SCALE_FACTOR",
                                   "QT_STYLE_OVERRIDE", "WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP"}) {
        qunsetenv(name);
    }
}

Session::~Session() {
    g_sessionBus = nullptr;
}

fake::PrivateBus& SessionBus() {
    return *g_sessionBus;
}

StatusItemFixture::~StatusItemFixture() {
    item.reset();
    bus.loop->stop();
}

useragent::MenuItems StatusItemFixture::menuItems(bool fullDiskAccess) {
    const auto called = [this](const char* name) { return [this, name] { calls.emplace_back(name); }; };
    return {{{fullDiskAccess ? "Full disk access: On" : "Full disk access: Off", !fullDiskAccess},
             called("option1")},
            {{"Accessibility: On", false, useragent::MenuImage::accessibility}, called("option2")},
            {{"Finder Extension: Off"}, called("option3")},
            {{"v. 1.2.3"}, nullptr}};
}

void StatusItemFixture::setVersion(const std::string& title) {
    useragent::MenuItems items = menuItems(shownFullDiskAccess_);
    items.back().content.title = title;
    menu->setItems(items);
}

void StatusItemFixture::createItem(std::chrono::milliseconds longestMenu) {
    item = std::make_unique<useragent::TrayStatusItem>(
        bus, menu,
        [this] {
            calls.emplace_back("needsUpdate");
            onNeedsUpdate();
        },
        longestMenu);
}

std::string StatusItemFixture::createItemIn(PanelStandIn& panel) {
    fillMenu(true);
    createItem();
    return panel.waitForItem();
}

void StatusItemFixture::fillMenu(bool fullDiskAccess) {
    shownFullDiskAccess_ = fullDiskAccess;
    menu->setItems(menuItems(fullDiskAccess));
    menu->setService(useragent::DescribeService(useragent::StatusImage::menuIcon));
}

}  // namespace statusitem
