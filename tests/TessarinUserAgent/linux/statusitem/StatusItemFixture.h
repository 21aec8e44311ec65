#pragma once

#include <gtest/gtest.h>

#include <QMenu>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PanelStandIn.h"
#include "statusitem/TrayStatusItem.h"
#include "support/Environment.h"
#include "support/PrivateBus.h"
#include "support/XServer.h"

namespace statusitem {

// The session that the program runs in: an X server, a message bus, no desktop. One at a time, before the
// application.
class Session {
 public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

 private:
    fake::PrivateBus bus_;
    fake::XServer display_;
};

fake::PrivateBus& SessionBus();

// With this in the environment, the session's bus is dead from the start on.
inline constexpr const char* kWithoutBus = "TESSARIN_TEST_WITHOUT_BUS";

// An item with its menu, filled as when everything is in order. Panels come and go as the test likes.
class StatusItemFixture : public testing::Test {
 protected:
    StatusItemFixture() { fillMenu(true); }
    ~StatusItemFixture() override;

    static std::string address() { return SessionBus().address(); }

    // The item; it is not there before.
    void createItem(std::chrono::milliseconds longestMenu = useragent::TrayStatusItem::kLongestMenu);
    // The same, in this panel; its bus name.
    std::string createItemIn(PanelStandIn& panel);
    void fillMenu(bool fullDiskAccess);
    void setVersion(const std::string& title);  // of the version's item, the others stay
    useragent::MenuItems menuItems(bool fullDiskAccess);
    // Nobody has closed our own menu; the window system may at any time.
    bool menuIsOpen() const { return menu->drawnMenu().isVisible(); }

    // The session's bus, or another.
    useragent::SessionBusPlace bus{std::make_shared<cmn::bus::Loop>(), address()};
    std::vector<std::string> calls;  // of the callbacks, in order
    std::function<void()> onNeedsUpdate = [] {};
    std::shared_ptr<useragent::StatusMenu> menu =
        std::make_shared<useragent::StatusMenu>([this] { calls.emplace_back("quit"); });
    std::unique_ptr<useragent::TrayStatusItem> item;

 private:
    bool shownFullDiskAccess_ = true;
};

}  // namespace statusitem
