// The yardstick for the agent's idle costs: an empty Qt event loop with one bus connection, or with "--tray"
// a bare tray program.
#include <QApplication>
#include <QDBusConnection>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <cstring>

int main(int argc, char** argv) {
    const bool tray = argc > 1 && std::strcmp(argv[1], "--tray") == 0;
    if (!tray) {
        QCoreApplication application(argc, argv);
        if (!QDBusConnection::sessionBus().isConnected()) {
            return 1;
        }
        return QCoreApplication::exec();
    }
    QApplication application(argc, argv);
    if (!QDBusConnection::sessionBus().isConnected()) {
        return 1;
    }
    QPixmap pixmap(22, 22);
    pixmap.fill(Qt::darkGreen);
    QMenu menu;
    menu.addAction("Entry");
    QSystemTrayIcon icon{QIcon(pixmap)};
    icon.setContextMenu(&menu);
    icon.show();
    return QApplication::exec();
}
