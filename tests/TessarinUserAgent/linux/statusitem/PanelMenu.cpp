#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <stdexcept>

#include "PanelStandIn.h"

namespace statusitem {
namespace {

Entry ToEntry(int number, const QVariantMap& properties) {
    return {number, properties.value(QStringLiteral("label")).toString().toStdString(),
            properties.value(QStringLiteral("enabled"), true).toBool(),
            properties.value(QStringLiteral("type")).toString() == QLatin1String("separator"),
            properties.value(QStringLiteral("icon-data")).toByteArray()};
}

// (ia{sv}av)
Entry ReadEntry(const QDBusArgument& argument, std::vector<Entry>* children) {
    int number = 0;
    QVariantMap properties;
    QVariantList below;
    argument.beginStructure();
    argument >> number >> properties >> below;
    argument.endStructure();
    if (children != nullptr) {
        for (const QVariant& child : below) {
            children->push_back(ReadEntry(child.value<QDBusArgument>(), nullptr));
        }
    }
    return ToEntry(number, properties);
}

// (isvu)
struct ClickEvent {
    int entry = 0;
};
QDBusArgument& operator<<(QDBusArgument& out, const ClickEvent& click) {
    out.beginStructure();
    out << click.entry << QStringLiteral("clicked") << QDBusVariant(QString()) << 0U;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, ClickEvent& /*click*/) {
    return in;
}

}  // namespace

QVariantList PanelStandIn::callMenu(const std::string& item, const char* member,
                                    const QVariantList& arguments) {
    const std::string path = property(item, "Menu").value<QDBusObjectPath>().path().toStdString();
    return call(item, path, kMenuInterface, member, arguments);
}

std::vector<Entry> PanelStandIn::layout(const std::string& item) {
    const QVariantList answer = callMenu(item, "GetLayout", {0, -1, QStringList()});
    std::vector<Entry> entries;
    ReadEntry(answer.value(1).value<QDBusArgument>(), &entries);
    return entries;
}

std::vector<Entry> PanelStandIn::group(const std::string& item, const QList<int>& entries) {
    const QVariantList answer =
        callMenu(item, "GetGroupProperties", {QVariant::fromValue(entries), QStringList()});
    std::vector<Entry> found;
    const auto argument = answer.value(0).value<QDBusArgument>();  // a(ia{sv})
    argument.beginArray();
    while (!argument.atEnd()) {
        int number = 0;
        QVariantMap properties;
        argument.beginStructure();
        argument >> number >> properties;
        argument.endStructure();
        found.push_back(ToEntry(number, properties));
    }
    argument.endArray();
    return found;
}

std::string PanelStandIn::menuProperty(const std::string& item, int entry, const char* name) {
    return callMenu(item, "GetProperty", {entry, QString::fromLatin1(name)})
        .value(0)
        .value<QDBusVariant>()
        .variant()
        .toString()
        .toStdString();
}

void PanelStandIn::clickInGroup(const std::string& item, const QList<int>& entries) {
    qDBusRegisterMetaType<ClickEvent>();
    QDBusArgument events;  // a(isvu)
    events.beginArray(QMetaType::fromType<ClickEvent>());
    for (const int entry : entries) {
        events << ClickEvent{entry};
    }
    events.endArray();
    callMenu(item, "EventGroup", {QVariant::fromValue(events)});
}

bool PanelStandIn::aboutToShow(const std::string& item) {
    return callMenu(item, "AboutToShow", {0}).value(0).toBool();
}

bool PanelStandIn::aboutToShowGroup(const std::string& item) {
    return !callMenu(item, "AboutToShowGroup", {QVariant::fromValue(QList<int>{0})})
                .value(0)
                .value<QList<int>>()
                .isEmpty();
}

void PanelStandIn::menuEvent(const std::string& item, int entry, const char* what) {
    callMenu(item, "Event",
             {entry, QString::fromLatin1(what), QVariant::fromValue(QDBusVariant(QString())), 0U});
}

void PanelStandIn::click(const std::string& item, const std::string& label) {
    for (const Entry& entry : layout(item)) {
        if (entry.label == label) {
            menuEvent(item, entry.number, "clicked");
            return;
        }
    }
    throw std::runtime_error("no entry " + label);
}

}  // namespace statusitem
