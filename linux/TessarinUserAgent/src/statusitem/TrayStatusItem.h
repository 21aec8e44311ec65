#pragma once

#include <QObject>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "sessionbus/SessionBus.h"
#include "statusitem/StatusMenu.h"
#include "statusitem/TrayHosts.h"
#include "statusitem/TrayIcon.h"
#include "useragent/AppDelegate.h"

namespace useragent {

// The status item in the desktop's status area: over the session bus (StatusNotifierItem), or in a tray of
// the X server (XEmbed) while no panel offers the former. Appears when a panel comes and moves on when it
// goes; without one, or without a bus, nothing is shown and nothing fails. An item whose menu is open leaves
// once that has closed. Main thread.
class TrayStatusItem : public StatusItem {
 public:
    // A panel that opened its menu and has not said for so long that it closed it never will.
    static constexpr std::chrono::minutes kLongestMenu{1};

    // Visible, with the normal image, as soon as a panel has answered. `menuNeedsUpdate` is called each time
    // the user is about to see the menu; it may hide the item.
    TrayStatusItem(SessionBusPlace bus, std::shared_ptr<StatusMenu> menu,
                   std::function<void()> menuNeedsUpdate,
                   std::chrono::milliseconds longestMenu = kLongestMenu);
    ~TrayStatusItem() override;
    TrayStatusItem(const TrayStatusItem&) = delete;
    TrayStatusItem& operator=(const TrayStatusItem&) = delete;

    void setImage(StatusImage image) override;
    void setMenu(const MenuItems& items) override { menu_->setItems(items); }
    void setVisible(bool visible) override;
    IconPlace place() const override { return icon_ ? icon_->place() : IconPlace::none; }

 private:
    // Status areas call the icon, and what they call may change what is to be shown; so icons are made and
    // destroyed between such calls only.
    void settleLater();
    void settle();
    void hostAnswered(TrayRoad road);
    void enter(TrayRoad road, bool isNew);
    void leave();
    bool menuIsOpen() const;

    const SessionBusPlace bus_;
    const std::shared_ptr<StatusMenu> menu_;
    const std::chrono::milliseconds longestMenu_;
    QObject context_;  // of what is called later: nothing is after its end
    TrayHosts hosts_;
    StatusImage image_ = StatusImage::menuIcon;
    bool visible_ = true;
    bool willSettle_ = false;
    std::optional<TrayRoad> road_;      // of the last answer
    std::optional<TrayRoad> iconRoad_;  // of the icon
    std::unique_ptr<TrayIcon> icon_;
};

}  // namespace useragent
