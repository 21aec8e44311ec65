#include "statusitem/MenuAdaptor.h"

#include <QAction>
#include <QBuffer>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <algorithm>
#include <utility>

namespace useragent {
namespace {

// The layout never changes: items are rewritten, not added or removed.
constexpr unsigned kRevision = 1;
// Twice what menus show: panels of any density only make it smaller.
constexpr QSize kIconSize(32, 32);

// From one mark of a keyboard shortcut to the other's.
QString Label(QString text) {
    return text.replace(QLatin1String("&&"), QLatin1String("&"))
        .replace(QLatin1Char('_'), QLatin1String("__"));
}

QByteArray Png(const QIcon& icon) {
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    icon.pixmap(kIconSize, 1.0).save(&buffer, "PNG");
    return data;
}

QVariantMap PropertiesOf(const QAction& action) {
    if (action.isSeparator()) {
        return {{QStringLiteral("type"), QStringLiteral("separator")}};
    }
    QVariantMap properties{{QStringLiteral("label"), Label(action.text())},
                           {QStringLiteral("enabled"), action.isEnabled()}};
    if (!action.icon().isNull()) {
        properties.insert(QStringLiteral("icon-data"), Png(action.icon()));
    }
    return properties;
}

}  // namespace

MenuAdaptor::MenuAdaptor(QObject* parent, StatusMenu& menu, std::chrono::milliseconds longestMenu,
                         std::function<void()> closed)
    : QDBusAbstractAdaptor(parent), menu_(menu), closed_(std::move(closed)) {
    open_.setSingleShot(true);
    open_.setInterval(longestMenu);
    connect(&open_, &QTimer::timeout, this, [this] { closed_(); });
    for (QAction* const action : menu.drawnMenu().actions()) {
        actions_.append(action);
        sent_.append(PropertiesOf(*action));
        connect(action, &QAction::changed, this,
                [this, id = static_cast<int>(actions_.size())] { actionChanged(id); });
    }
}

QString MenuAdaptor::textDirection() const {
    return QGuiApplication::isRightToLeft() ? QStringLiteral("rtl") : QStringLiteral("ltr");
}

bool MenuAdaptor::isItem(int id) const {
    return id >= 1 && id <= actions_.size() && !actions_.at(id - 1).isNull();
}

QVariantMap MenuAdaptor::properties(int id, const QStringList& names) const {
    QVariantMap all;
    if (isItem(id)) {
        all = PropertiesOf(*actions_.at(id - 1));
    } else if (id == 0) {
        all.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    }
    if (names.isEmpty()) {
        return all;
    }
    QVariantMap chosen;
    for (const QString& name : names) {
        if (all.contains(name)) {
            chosen.insert(name, all.value(name));
        }
    }
    return chosen;
}

void MenuAdaptor::actionChanged(int id) {
    const QVariantMap now = properties(id);
    const QVariantMap before = std::exchange(sent_[id - 1], now);
    BusMenuItem updated{id, {}};
    for (auto property = now.begin(); property != now.end(); ++property) {
        if (before.value(property.key()) != property.value()) {
            updated.properties.insert(property.key(), property.value());
        }
    }
    BusMenuRemoved removed{id, {}};
    for (auto property = before.begin(); property != before.end(); ++property) {
        if (!now.contains(property.key())) {
            removed.properties.append(property.key());
        }
    }
    if (updated.properties.isEmpty() && removed.properties.isEmpty()) {
        return;
    }
    changed_ = true;
    emit ItemsPropertiesUpdated(
        updated.properties.isEmpty() ? BusMenuItems() : BusMenuItems{updated},
        removed.properties.isEmpty() ? BusMenuRemovedList() : BusMenuRemovedList{removed});
}

unsigned MenuAdaptor::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                BusMenuLayout& layout) {
    layout.number = parentId;
    layout.properties = properties(parentId, propertyNames);
    if (parentId == 0 && recursionDepth != 0) {
        for (int id = 1; id <= actions_.size(); ++id) {
            layout.children.append({id, properties(id, propertyNames), {}});
        }
    }
    return kRevision;
}

BusMenuItems MenuAdaptor::GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames) {
    BusMenuItems items;
    // No ids mean all.
    for (int id = 0; id <= actions_.size(); ++id) {
        if (ids.isEmpty() || ids.contains(id)) {
            items.append({id, properties(id, propertyNames)});
        }
    }
    return items;
}

QDBusVariant MenuAdaptor::GetProperty(int id, const QString& name) {
    const QVariant value = properties(id).value(name);
    return QDBusVariant(value.isValid() ? value : QVariant(QString()));
}

void MenuAdaptor::Event(int id, const QString& eventId, const QDBusVariant& /*data*/,
                        unsigned /*timestamp*/) {
    if (eventId == QLatin1String("clicked") && isItem(id)) {
        // The panel has its answer first, whatever the selection does.
        QMetaObject::invokeMethod(actions_.at(id - 1), &QAction::trigger, Qt::QueuedConnection);
    } else if (eventId == QLatin1String("opened") && id == 0) {
        open_.start();
        if (!std::exchange(upToDate_, false)) {
            // From panels that do not ask before.
            update();
        }
    } else if (eventId == QLatin1String("closed") && id == 0) {
        upToDate_ = false;
        open_.stop();
        closed_();
    }
}

QList<int> MenuAdaptor::EventGroup(const BusMenuEvents& events) {
    QList<int> unknown;
    for (const BusMenuEvent& event : events) {
        if (event.number != 0 && !isItem(event.number)) {
            unknown.append(event.number);
        }
        Event(event.number, event.name, event.data, event.timestamp);
    }
    return unknown;
}

bool MenuAdaptor::update() {
    changed_ = false;
    menu_.update();
    return changed_;
}

bool MenuAdaptor::AboutToShow(int id) {
    if (id != 0) {
        return false;
    }
    upToDate_ = true;
    open_.start();
    return update();
}

QList<int> MenuAdaptor::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    QList<int> changed;
    idErrors.clear();
    for (const int id : ids) {
        if (id != 0 && !isItem(id)) {
            idErrors.append(id);
        } else if (AboutToShow(id)) {
            changed.append(id);
        }
    }
    return changed;
}

}  // namespace useragent
