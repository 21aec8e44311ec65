#include "statusitem/BusTrayIcon.h"

#include <QDBusMessage>
#include <QMenu>
#include <QPoint>
#include <atomic>
#include <utility>

#include "common/log.h"
#include "statusitem/ItemAdaptor.h"
#include "statusitem/MenuAdaptor.h"

namespace useragent {
namespace {

QString UniqueConnectionName() {
    static std::atomic<int> last{0};
    return QStringLiteral("tessarin-status-item-%1").arg(++last);
}

}  // namespace

BusTrayIcon::BusTrayIcon(StatusMenu& menu, StatusImage image, std::chrono::milliseconds longestMenu,
                         std::function<void()> menuClosed)
    : name_(UniqueConnectionName()), bus_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name_)) {
    RegisterBusTypes();
    item_ = new ItemAdaptor(&itemObject_, image, [&menu](int x, int y) {
        // The panel has its answer first.
        QMetaObject::invokeMethod(
            &menu.drawnMenu(), [&drawn = menu.drawnMenu(), x, y] { drawn.popup(QPoint(x, y)); },
            Qt::QueuedConnection);
    });
    menuAdaptor_ = new MenuAdaptor(&menuObject_, menu, longestMenu, std::move(menuClosed));
    if (!bus_.registerObject(QLatin1String(ItemAdaptor::kPath), &itemObject_) ||
        !bus_.registerObject(QLatin1String(ItemAdaptor::kMenuPath), &menuObject_)) {
        TLOG_WARN("The status item is not on the session bus: {}", bus_.lastError().message().toStdString());
    }
    hostAnswered();
}

BusTrayIcon::~BusTrayIcon() {
    bus_.unregisterObject(QLatin1String(ItemAdaptor::kPath));
    bus_.unregisterObject(QLatin1String(ItemAdaptor::kMenuPath));
    bus_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name_);
}

void BusTrayIcon::setImage(StatusImage image) {
    item_->setImage(image);
}

bool BusTrayIcon::menuIsOpen() const {
    return menuAdaptor_->isOpen();
}

void BusTrayIcon::hostAnswered() {
    QDBusMessage registration =
        QDBusMessage::createMethodCall(QLatin1String(kWatcher), QLatin1String(kWatcherPath),
                                       QLatin1String(kWatcher), QStringLiteral("RegisterStatusNotifierItem"));
    registration.setArguments({bus_.baseService()});
    registration.setAutoStartService(false);
    bus_.send(registration);
}

}  // namespace useragent
