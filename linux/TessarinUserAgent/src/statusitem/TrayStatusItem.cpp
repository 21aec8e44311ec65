#include "statusitem/TrayStatusItem.h"

#include <QGuiApplication>
#include <QMenu>
#include <QMetaObject>
#include <QObject>
#include <optional>
#include <utility>

#include "common/log.h"
#include "statusitem/BusTrayIcon.h"
#include "statusitem/TrayHosts.h"
#include "statusitem/WindowTrayIcon.h"

namespace useragent {

// What is to be shown, and the icon that is. Status areas call the icon, and what they call may change
// either; so icons are made and destroyed between such calls only.
class TrayStatusItem::Tray {
 public:
    Tray(SessionBusPlace bus, std::shared_ptr<StatusMenu> menu, std::chrono::milliseconds longestMenu)
        : bus_(std::move(bus)),
          menu_(std::move(menu)),
          longestMenu_(longestMenu),
          hosts_(bus_, [this](TrayRoad road) { hostAnswered(road); }) {
        QObject::connect(&menu_->drawnMenu(), &QMenu::aboutToHide, &context_, [this] { settleLater(); });
        hosts_.ask();
    }

    StatusMenu& menu() const { return *menu_; }

    void setImage(StatusImage image) {
        if (std::exchange(image_, image) != image && icon_) {
            icon_->setImage(image);
        }
    }

    void setVisible(bool visible) {
        if (std::exchange(visible_, visible) != visible) {
            settleLater();
        }
    }

 private:
    void settleLater() {
        if (!std::exchange(willSettle_, true)) {
            QMetaObject::invokeMethod(
                &context_, [this] { settle(); }, Qt::QueuedConnection);
        }
    }

    void settle() {
        willSettle_ = false;
        leave();
        if (visible_ && !icon_) {
            hosts_.ask();
        }
    }

    void hostAnswered(TrayRoad road) {
        const bool isNew = std::exchange(road_, road) != road;
        leave();
        if (!visible_) {
            return;
        }
        if (!icon_) {
            enter(road, isNew);
        } else if (iconRoad_ == road) {
            icon_->hostAnswered();
        }
    }

    // The icon that should not be there, unless its menu is open: when that closes, we are back.
    void leave() {
        if (icon_ && (!visible_ || iconRoad_ != road_) && !menuIsOpen()) {
            icon_.reset();
        }
    }

    bool menuIsOpen() const {
        // A panel that has gone shows none.
        return menu_->drawnMenu().isVisible() || (iconRoad_ == road_ && icon_->menuIsOpen());
    }

    void enter(TrayRoad road, bool isNew) {
        iconRoad_ = road;
        if (road == TrayRoad::sessionBus) {
            TLOG_INFO("The status item is in the status area on the session bus");
            icon_ =
                std::make_unique<BusTrayIcon>(bus_, *menu_, image_, longestMenu_, [this] { settleLater(); });
        } else if (QGuiApplication::platformName() == QLatin1String("xcb")) {
            TLOG_INFO("The status item is in the status area of the X server, when there is one");
            icon_ = std::make_unique<WindowTrayIcon>(*menu_, image_);
        } else if (isNew) {
            TLOG_INFO("No status area yet; the status item waits for one");
        }
    }

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

TrayStatusItem::TrayStatusItem(SessionBusPlace bus, std::shared_ptr<StatusMenu> menu,
                               std::function<void()> menuNeedsUpdate, std::chrono::milliseconds longestMenu)
    : tray_(std::make_unique<Tray>(std::move(bus), std::move(menu), longestMenu)) {
    tray_->menu().setNeedsUpdate(std::move(menuNeedsUpdate));
}

TrayStatusItem::~TrayStatusItem() {
    tray_->menu().setNeedsUpdate(nullptr);
}

void TrayStatusItem::setImage(StatusImage image) {
    tray_->setImage(image);
}

void TrayStatusItem::setMenu(const MenuItems& items) {
    tray_->menu().setItems(items);
}

void TrayStatusItem::setVisible(bool visible) {
    tray_->setVisible(visible);
}

}  // namespace useragent
