#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusVariant>
#include <QIcon>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace useragent {

// What status notifier items and their menus put on the bus, with its D-Bus signature.

struct BusPixmap {  // (iiay): pixels are ARGB in network order
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
using BusPixmaps = QList<BusPixmap>;

struct BusToolTip {  // (sa(iiay)ss)
    QString iconName;
    BusPixmaps icon;
    QString title;
    QString text;
};

struct BusMenuItem {  // (ia{sv})
    int number = 0;
    QVariantMap properties;
};
using BusMenuItems = QList<BusMenuItem>;

struct BusMenuRemoved {  // (ias): names of properties that have gone
    int number = 0;
    QStringList properties;
};
using BusMenuRemovedList = QList<BusMenuRemoved>;

struct BusMenuLayout {  // (ia{sv}av)
    int number = 0;
    QVariantMap properties;
    QList<BusMenuLayout> children;
};

struct BusMenuEvent {  // (isvu)
    int number = 0;
    QString name;
    QDBusVariant data;
    unsigned timestamp = 0;
};
using BusMenuEvents = QList<BusMenuEvent>;

// Before the first use of any of them; may be called again.
void RegisterBusTypes();

// The pixmaps that panels need.
BusPixmaps ToBusPixmaps(const QIcon& icon);

}  // namespace useragent

Q_DECLARE_METATYPE(useragent::BusPixmap)
Q_DECLARE_METATYPE(useragent::BusToolTip)
Q_DECLARE_METATYPE(useragent::BusMenuItem)
Q_DECLARE_METATYPE(useragent::BusMenuRemoved)
Q_DECLARE_METATYPE(useragent::BusMenuLayout)
Q_DECLARE_METATYPE(useragent::BusMenuEvent)
