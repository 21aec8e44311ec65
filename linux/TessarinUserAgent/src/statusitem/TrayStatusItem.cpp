#include "statusitem/TrayStatusItem.h"

#include <QGuiApplication>
#include <QMenu>
#include <QMetaObject>
#include <utility>

#include "common/log.h"
#include "statusitem/BusTrayIcon.h"
#include "statusitem/WindowTrayIcon.h"

namespace useragent {

TrayStatusItem::TrayStatusItem(SessionBusPlace bus, std::shared_ptr<StatusMenu> menu,
                               std::function<void()> menuNeedsUpdate, std::chrono::milliseconds longestMenu)
    : bus_(std::move(bus)),
      menu_(std::move(menu)),
      longestMenu_(longestMenu),
      hosts_(bus_, [this](TrayRoad road) { hostAnswered(road); }) {
    menu_->setNeedsUpdate(std::move(menuNeedsUpdate));
    QObject::connect(&menu_->drawnMenu(), &QMenu::aboutToHide, &context_, [this] { settleLater(); });
    hosts_.ask();
}

TrayStatusItem::~TrayStatusItem() {
    menu_->setNeedsUpdate(nullptr);
}

void TrayStatusItem::setImage(StatusImage image) {
    menu_->setService(DescribeService(image));
    if (std::exchange(image_, image) != image && icon_) {
        icon_->setImage(image);
    }
}

void TrayStatusItem::setVisible(bool visible) {
    if (std::exchange(visible_, visible) != visible) {
        settleLater();
    }
}

void TrayStatusItem::settleLater() {
    if (!std::exchange(willSettle_, true)) {
        QMetaObject::invokeMethod(
            &context_, [this] { settle(); }, Qt::QueuedConnection);
    }
}

void TrayStatusItem::settle() {
    willSettle_ = false;
    leave();
    if (visible_ && !icon_) {
        hosts_.ask();
    }
}

void TrayStatusItem::hostAnswered(TrayRoad road) {
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
void TrayStatusItem::leave() {
    if (icon_ && (!visible_ || iconRoad_ != road_) && !menuIsOpen()) {
        icon_.reset();
    }
}

bool TrayStatusItem::menuIsOpen() const {
    // A panel that has gone shows none.
    return menu_->drawnMenu().isVisible() || (iconRoad_ == road_ && icon_->menuIsOpen());
}

void TrayStatusItem::enter(TrayRoad road, bool isNew) {
    iconRoad_ = road;
    if (road == TrayRoad::sessionBus) {
        TLOG_INFO("The status item is in the status area on the session bus");
        icon_ = std::make_unique<BusTrayIcon>(bus_, *menu_, image_, longestMenu_, [this] { settleLater(); });
    } else if (QGuiApplication::platformName() == QLatin1String("xcb")) {
        TLOG_INFO("The status item is in the status area of the X server, when there is one");
        icon_ = std::make_unique<WindowTrayIcon>(*menu_, image_);
    } else if (isNew) {
        TLOG_INFO("No status area yet; the status item waits for one");
    }
}

}  // namespace useragent
