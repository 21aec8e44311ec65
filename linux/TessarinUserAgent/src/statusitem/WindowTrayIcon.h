#pragma once

#include <QObject>
#include <QSystemTrayIcon>

#include "statusitem/StatusMenu.h"
#include "statusitem/TrayIcon.h"

namespace useragent {

// In a tray of the X server (XEmbed): a small window of ours inside the tray's. The toolkit waits for a tray
// and follows it by itself.
//
// The toolkit decides once in a process, when its first icon is made, whether it draws icons in windows or
// speaks to the watcher of status notifier items, which it asks in blocking calls. So it makes this kind
// only, and only while no panel has registered with that watcher.
class WindowTrayIcon : public QObject, public TrayIcon {
    Q_OBJECT

 public:
    // The menu must outlive this object.
    WindowTrayIcon(StatusMenu& menu, StatusImage image);

    void setImage(StatusImage image) override;
    void hostAnswered() override {}
    bool menuIsOpen() const override { return false; }
    // The toolkit has a window while there is a tray.
    IconPlace place() const override {
        return icon_.geometry().isValid() ? IconPlace::window : IconPlace::none;
    }

    bool eventFilter(QObject* watched, QEvent* event) override;

 private:
    QSystemTrayIcon icon_;
};

}  // namespace useragent
