#include "statusitem/WindowTrayIcon.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QMenu>
#include <QWidget>

#include "statusitem/StatusIcons.h"

namespace useragent {
namespace {

// The toolkit's window in the tray has neither a name for those who have it read aloud nor a title.
void NameWindow(QObject* object, const QString& name) {
    auto* const window = qobject_cast<QWidget*>(object);
    if (window != nullptr && window->inherits("QSystemTrayIconSys")) {
        window->setAccessibleName(name);
        window->setWindowTitle(name);
    }
}

}  // namespace

WindowTrayIcon::WindowTrayIcon(StatusMenu& menu, StatusImage image) {
    QMenu& drawnMenu = menu.drawnMenu();
    icon_.setContextMenu(&drawnMenu);
    // The toolkit shows the menu at the other button only.
    connect(&icon_, &QSystemTrayIcon::activated, &drawnMenu,
            [&drawnMenu](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    drawnMenu.popup(QCursor::pos());
                }
            });
    setImage(image);
    // There is another window for each tray.
    qApp->installEventFilter(this);
    icon_.show();
}

void WindowTrayIcon::setImage(StatusImage image) {
    icon_.setIcon(StatusIcon(image));
    icon_.setToolTip(QString::fromUtf8(DescribeImage(image)));
    for (QWidget* const window : QApplication::topLevelWidgets()) {
        NameWindow(window, icon_.toolTip());
    }
}

bool WindowTrayIcon::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show) {
        NameWindow(watched, icon_.toolTip());
    }
    return false;
}

}  // namespace useragent
