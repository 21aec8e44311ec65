#pragma once

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QString>

// Types of the accessibility protocol that Qt D-Bus has to be told about before it can send them.

struct AtspiReference {
    QString busName;
    QDBusObjectPath path;
};
Q_DECLARE_METATYPE(AtspiReference)

using AtspiReferences = QList<AtspiReference>;
using AtspiAttributes = QMap<QString, QString>;

inline QDBusArgument& operator<<(QDBusArgument& argument, const AtspiReference& reference) {
    argument.beginStructure();
    argument << reference.busName << reference.path;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, AtspiReference& reference) {
    argument.beginStructure();
    argument >> reference.busName >> reference.path;
    argument.endStructure();
    return argument;
}

inline void RegisterAtspiTypes() {
    qDBusRegisterMetaType<AtspiReference>();
    qDBusRegisterMetaType<AtspiReferences>();
    qDBusRegisterMetaType<AtspiAttributes>();
}
