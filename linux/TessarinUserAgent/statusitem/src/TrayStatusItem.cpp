#include "linux_statusitem/TrayStatusItem.h"

#include <QGuiApplication>
#include <optional>
#include <utility>

#include "BusTrayIcon.h"
#include "TrayHosts.h"
#include "WindowTrayIcon.h"
#include "common/log.h"

namespace useragent {

class TrayStatusItem::Tray {
 public:
    explicit Tray(std::shared_ptr<StatusMenu> menu)
        : menu_(std::move(menu)), hosts_([this](TrayRoad road) { hostAnswered(road); }) {
        hosts_.ask();
    }

    StatusMenu& menu() const { return *menu_; }

    void setImage(StatusImage image) {
        if (std::exchange(image_, image) != image && icon_) {
            icon_->setImage(image);
        }
    }

    void setVisible(bool visible) {
        if (std::exchange(visible_, visible) == visible) {
            return;
        }
        if (visible) {
            hosts_.ask();
        } else {
            icon_.reset();
        }
    }

 private:
    void hostAnswered(TrayRoad road) {
        const bool isNew = std::exchange(road_, road) != road;
        if (!visible_) {
            return;
        }
        if (icon_ && !isNew) {
            icon_->hostAnswered();
            return;
        }
        icon_.reset();
        if (road == TrayRoad::sessionBus) {
            TLOG_INFO("The status item is in the status area on the session bus");
            icon_ = std::make_unique<BusTrayIcon>(*menu_, image_);
        } else if (QGuiApplication::platformName() == QLatin1String("xcb")) {
            TLOG_INFO("The status item is in the status area of the X server, when there is one");
            icon_ = std::make_unique<WindowTrayIcon>(*menu_, image_);
        } else if (isNew) {
            TLOG_INFO("No status area yet; the status item waits for one");
        }
    }

    const std::shared_ptr<StatusMenu> menu_;
    TrayHosts hosts_;
    StatusImage image_ = StatusImage::menuIcon;
    bool visible_ = true;
    std::optional<TrayRoad> road_;  // of the last answer
    std::unique_ptr<TrayIcon> icon_;
};

TrayStatusItem::TrayStatusItem(std::shared_ptr<StatusMenu> menu, std::function<void()> menuNeedsUpdate)
    : tray_(std::make_unique<Tray>(std::move(menu))) {
    tray_->menu().setNeedsUpdate(std::move(menuNeedsUpdate));
}

TrayStatusItem::~TrayStatusItem() {
    tray_->menu().setNeedsUpdate(nullptr);
}

void TrayStatusItem::setImage(StatusImage image) {
    tray_->setImage(image);
}

void TrayStatusItem::setVisible(bool visible) {
    tray_->setVisible(visible);
}

}  // namespace useragent
