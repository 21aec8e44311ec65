#pragma once

#include <QDBusAbstractAdaptor>
#include <QList>
#include <QPointer>
#include <QStringList>
#include <QVariantMap>

#include "BusTypes.h"
#include "linux_statusitem/StatusMenu.h"

class QAction;

namespace useragent {

// com.canonical.dbusmenu: the menu for panels that draw it themselves. Items are numbered from 1, 0 is the
// menu. Tells the panel of an item only what has changed. Main thread.
class MenuAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(unsigned Version READ version CONSTANT)
    Q_PROPERTY(QString TextDirection READ textDirection CONSTANT)
    Q_PROPERTY(QString Status READ status CONSTANT)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath CONSTANT)

 public:
    // The menu must outlive this object.
    MenuAdaptor(QObject* parent, StatusMenu& menu);

    unsigned version() const { return 3; }
    QString textDirection() const;
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

 public slots:
    unsigned GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                       useragent::BusMenuLayout& layout);
    useragent::BusMenuItems GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames);
    QDBusVariant GetProperty(int id, const QString& name);
    void Event(int id, const QString& eventId, const QDBusVariant& data, unsigned timestamp);
    QList<int> EventGroup(const useragent::BusMenuEvents& events);
    bool AboutToShow(int id);
    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

 signals:
    void ItemsPropertiesUpdated(const useragent::BusMenuItems& updated,
                                const useragent::BusMenuRemovedList& removed);
    void LayoutUpdated(unsigned revision, int parent);
    void ItemActivationRequested(int id, unsigned timestamp);

 private:
    bool isItem(int id) const;
    QVariantMap properties(int id, const QStringList& names = {}) const;
    void actionChanged(int id);
    bool update();

    StatusMenu& menu_;
    QList<QPointer<QAction>> actions_;
    QList<QVariantMap> sent_;  // what panels know of each
    bool changed_ = false;
    bool upToDate_ = false;  // the panel has asked before opening the menu
};

}  // namespace useragent
