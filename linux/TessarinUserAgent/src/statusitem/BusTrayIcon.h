#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>

#include "statusitem/StatusMenu.h"
#include "statusitem/TrayIcon.h"

namespace useragent {

class ItemAdaptor;
class MenuAdaptor;

// A status notifier item with its menu, on a connection of its own to the session bus: panels let go of it
// when that ends. Nothing here waits for a panel.
//
// Not the toolkit's item: that one asks the watcher in blocking calls each time it is made, and once a
// process has drawn an icon in a window the toolkit makes no other kind.
class BusTrayIcon : public TrayIcon {
 public:
    // Where panels learn of items.
    static constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
    static constexpr const char* kWatcherPath = "/StatusNotifierWatcher";

    // The menu must outlive this object. `menuClosed` is called when the panel has closed the menu, or has
    // not said so for `longestMenu`.
    BusTrayIcon(StatusMenu& menu, StatusImage image, std::chrono::milliseconds longestMenu,
                std::function<void()> menuClosed);
    ~BusTrayIcon() override;
    BusTrayIcon(const BusTrayIcon&) = delete;
    BusTrayIcon& operator=(const BusTrayIcon&) = delete;

    void setImage(StatusImage image) override;
    void hostAnswered() override;
    bool menuIsOpen() const override;

 private:
    const QString name_;
    QDBusConnection bus_;
    QObject itemObject_;
    QObject menuObject_;
    ItemAdaptor* item_ = nullptr;  // both belong to their objects
    MenuAdaptor* menuAdaptor_ = nullptr;
};

}  // namespace useragent
