#pragma once

#include <QDBusAbstractAdaptor>
#include <QList>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>
#include <chrono>
#include <functional>

#include "statusitem/BusTypes.h"
#include "statusitem/StatusMenu.h"

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
    // The menu must outlive this object. `closed` is called when a menu that was open is so no more.
    MenuAdaptor(QObject* parent, StatusMenu& menu, std::chrono::milliseconds longestMenu,
                std::function<void()> closed);

    // Whether the panel has asked for the menu or opened it, and has not closed it since. Some panels never
    // say that they close it: after `longestMenu` it counts as closed.
    bool isOpen() const { return open_.isActive(); }

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
    const std::function<void()> closed_;
    QTimer open_;
    QList<QPointer<QAction>> actions_;
    QList<QVariantMap> sent_;  // what panels know of each
    bool changed_ = false;
    bool upToDate_ = false;  // the panel has asked before opening the menu
};

}  // namespace useragent
