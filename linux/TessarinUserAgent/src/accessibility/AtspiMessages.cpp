#include "accessibility/AtspiMessages.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace useragent::atspi {
namespace {

constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";

// How many entries of a long list are read between two looks at the clock.
constexpr std::size_t kEntriesPerLook = 256;

bool IsReply(const QDBusMessage& message, const char* signature) {
    return message.type() == QDBusMessage::ReplyMessage && message.signature() == QLatin1String(signature);
}

QDBusArgument Argument(const QDBusMessage& message) {
    return message.arguments().at(0).value<QDBusArgument>();
}

// A match rule of the protocol: four conditions, each with the way its items are combined, and no inversion.
// The conditions on attributes, roles and interfaces are empty.
QDBusArgument RuleForStates(States states) {
    constexpr int kAll = 1;
    const QMetaType number = QMetaType::fromType<int>();
    const QMetaType text = QMetaType::fromType<QString>();
    QDBusArgument rule;
    rule.beginStructure();
    rule.beginArray(number);
    rule << static_cast<int>(states & 0xFFFFFFFFU) << static_cast<int>(states >> 32U);
    rule.endArray();
    rule << kAll;
    rule.beginMap(text, text);
    rule.endMap();
    rule << kAll;
    rule.beginArray(number);
    rule << 0 << 0 << 0 << 0;
    rule.endArray();
    rule << kAll;
    rule.beginArray(text);
    rule.endArray();
    rule << kAll << false;
    rule.endStructure();
    return rule;
}

QVariant PropertyValue(const QDBusMessage& reply) {
    return IsReply(reply, "v") ? reply.arguments().at(0).value<QDBusVariant>().variant() : QVariant();
}

}  // namespace

QDBusMessage Call(const ObjectRef& object, const char* interface, const char* method,
                  const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(object.busName, object.path,
                                                          QLatin1String(interface), QLatin1String(method));
    message.setArguments(arguments);
    return message;
}

QDBusMessage GetProperty(const ObjectRef& object, const char* interface, const char* property) {
    return Call(object, kPropertiesInterface, "Get",
                {QString::fromLatin1(interface), QString::fromLatin1(property)});
}

QDBusMessage GetText(const ObjectRef& object) {
    return Call(object, kTextInterface, "GetText", {0, -1});
}

QDBusMessage GetShowingChildren(const ObjectRef& object, int atMost) {
    constexpr std::uint32_t kOrderOfTheTree = 1;
    constexpr bool kDescend = false;
    return Call(object, kCollectionInterface, "GetMatches",
                {QVariant::fromValue(RuleForStates(States{1} << static_cast<unsigned>(State::showing))),
                 kOrderOfTheTree, atMost, kDescend});
}

QDBusMessage Ping(const QString& busName) {
    return Call({busName, kRootPath}, "org.freedesktop.DBus.Peer", "Ping");
}

QDBusMessage CallBus(const char* method, const QVariantList& arguments) {
    return Call({QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus")},
                "org.freedesktop.DBus", method, arguments);
}

std::optional<std::vector<ObjectRef>> ReadObjects(const QDBusMessage& reply, Deadline deadline) {
    if (!IsReply(reply, "a(so)")) {
        return std::nullopt;
    }
    const QDBusArgument list = Argument(reply);
    std::vector<ObjectRef> objects;
    bool inTime = true;
    list.beginArray();
    while (!list.atEnd() && inTime) {
        inTime = objects.size() % kEntriesPerLook != 0 || Clock::now() < deadline;
        ObjectRef object;
        QDBusObjectPath path;
        list.beginStructure();
        list >> object.busName >> path;
        list.endStructure();
        object.path = path.path();
        if (!object.busName.isEmpty() && object.path != QLatin1String(kNullPath)) {
            objects.push_back(std::move(object));
        }
    }
    list.endArray();
    return inTime ? std::optional(std::move(objects)) : std::nullopt;
}

std::optional<States> ReadStates(const QDBusMessage& reply) {
    if (!IsReply(reply, "au")) {
        return std::nullopt;
    }
    const QDBusArgument words = Argument(reply);
    std::array<std::uint32_t, 2> halves{};
    words.beginArray();
    for (std::uint32_t& half : halves) {
        if (!words.atEnd()) {
            words >> half;
        }
    }
    words.endArray();
    return halves[0] | (States{halves[1]} << 32);
}

std::optional<std::uint32_t> ReadNumber(const QDBusMessage& reply) {
    return IsReply(reply, "u") ? std::optional(reply.arguments().at(0).toUInt()) : std::nullopt;
}

std::optional<QString> ReadString(const QDBusMessage& reply) {
    return IsReply(reply, "s") ? std::optional(reply.arguments().at(0).toString()) : std::nullopt;
}

std::optional<QString> ReadStringProperty(const QDBusMessage& reply) {
    const QVariant value = PropertyValue(reply);
    return value.typeId() == QMetaType::QString ? std::optional(value.toString()) : std::nullopt;
}

std::optional<bool> ReadBoolProperty(const QDBusMessage& reply) {
    const QVariant value = PropertyValue(reply);
    return value.typeId() == QMetaType::Bool ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<QMap<QString, QString>> ReadAttributes(const QDBusMessage& reply) {
    if (!IsReply(reply, "a{ss}")) {
        return std::nullopt;
    }
    const QDBusArgument map = Argument(reply);
    QMap<QString, QString> attributes;
    map.beginMap();
    while (!map.atEnd()) {
        QString key;
        QString value;
        map.beginMapEntry();
        map >> key >> value;
        map.endMapEntry();
        attributes.insert(key, value);
    }
    map.endMap();
    return attributes;
}

AXError ErrorOf(const QDBusMessage& reply) {
    using namespace std::string_view_literals;
    if (reply.type() == QDBusMessage::InvalidMessage) {
        return AXError::cannotComplete;  // not answered in time
    }
    if (reply.type() != QDBusMessage::ErrorMessage) {
        return AXError::failure;
    }
    static constexpr std::array kMeanings{
        std::pair{"org.freedesktop.DBus.Error.Disconnected"sv, AXError::cannotComplete},
        std::pair{"org.freedesktop.DBus.Error.NameHasNoOwner"sv, AXError::cannotComplete},
        std::pair{"org.freedesktop.DBus.Error.NoReply"sv, AXError::cannotComplete},
        std::pair{"org.freedesktop.DBus.Error.ServiceUnknown"sv, AXError::cannotComplete},
        std::pair{"org.freedesktop.DBus.Error.Timeout"sv, AXError::cannotComplete},
        std::pair{"org.freedesktop.DBus.Error.UnknownObject"sv, AXError::invalidUIElement},
        std::pair{"org.freedesktop.DBus.Error.InvalidArgs"sv, AXError::attributeUnsupported},
        std::pair{"org.freedesktop.DBus.Error.NotSupported"sv, AXError::attributeUnsupported},
        std::pair{"org.freedesktop.DBus.Error.UnknownInterface"sv, AXError::attributeUnsupported},
        std::pair{"org.freedesktop.DBus.Error.UnknownMethod"sv, AXError::attributeUnsupported},
        std::pair{"org.freedesktop.DBus.Error.UnknownProperty"sv, AXError::attributeUnsupported},
    };
    const std::string name = reply.errorName().toStdString();
    const auto* const found = std::find_if(kMeanings.begin(), kMeanings.end(),
                                           [&](const auto& meaning) { return meaning.first == name; });
    return found != kMeanings.end() ? found->second : AXError::failure;
}

bool IsNobodyThere(const QDBusMessage& reply) {
    return reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
           reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
}

}  // namespace useragent::atspi
