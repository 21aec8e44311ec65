#pragma once

#include <QDBusMessage>
#include <QMap>
#include <QString>
#include <QVariantList>
#include <cstdint>
#include <optional>
#include <vector>

#include "accessibility/AtspiProtocol.h"
#include "accessibility/BusCalls.h"
#include "useragent/Accessibility.h"

// Between the protocol's messages and our types. The other end is not trusted: a reply of another shape is no
// reply.
namespace useragent::atspi {

// Names one object on the accessibility bus.
struct ObjectRef {
    QString busName;
    QString path;

    bool operator==(const ObjectRef&) const = default;
};

// On the session bus: knows whether accessibility is on, and the address of the accessibility bus.
inline const ObjectRef kSessionObject{QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus")};

QDBusMessage Call(const ObjectRef& object, const char* interface, const char* method,
                  const QVariantList& arguments = {});
QDBusMessage GetProperty(const ObjectRef& object, const char* interface, const char* property);
QDBusMessage GetText(const ObjectRef& object);
// The children of an object that are showing, in order, at most so many, without asking each of them.
QDBusMessage GetShowingChildren(const ObjectRef& object, int atMost);
QDBusMessage Ping(const QString& busName);
// The bus itself.
QDBusMessage CallBus(const char* method, const QVariantList& arguments = {});

// Null references are left out. Nothing also when reading so many takes longer than the deadline.
std::optional<std::vector<ObjectRef>> ReadObjects(const QDBusMessage& reply, Deadline deadline);
std::optional<States> ReadStates(const QDBusMessage& reply);
std::optional<std::uint32_t> ReadNumber(const QDBusMessage& reply);
std::optional<QString> ReadString(const QDBusMessage& reply);
std::optional<QString> ReadStringProperty(const QDBusMessage& reply);
std::optional<bool> ReadBoolProperty(const QDBusMessage& reply);
std::optional<QMap<QString, QString>> ReadAttributes(const QDBusMessage& reply);

// What a reply that could not be read means: its error, or a failure when it has another shape.
AXError ErrorOf(const QDBusMessage& reply);

// Whether nobody has the bus name that was called.
bool IsNobodyThere(const QDBusMessage& reply);

}  // namespace useragent::atspi
