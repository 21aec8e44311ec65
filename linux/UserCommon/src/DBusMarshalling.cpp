#include "DBusMarshalling.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QStringList>
#include <type_traits>

namespace cmn {

namespace {

using QStringMap = QMap<QString, QString>;
using QBoolMap = QMap<QString, bool>;

bool RegisterTypes() {
    qDBusRegisterMetaType<QStringMap>();
    qDBusRegisterMetaType<QList<QStringMap>>();
    qDBusRegisterMetaType<QBoolMap>();
    return true;
}

QVariant ToVariant(bool value) {
    return {value};
}
QVariant ToVariant(std::int32_t value) {
    return {value};
}
QVariant ToVariant(std::uint32_t value) {
    return {value};
}
QVariant ToVariant(const std::string& value) {
    return {ToQString(value)};
}
QVariant ToVariant(const DBusObjectPath& value) {
    return QVariant::fromValue(QDBusObjectPath(ToQString(value.value)));
}
QVariant ToVariant(const std::vector<std::string>& value) {
    QStringList list;
    for (const std::string& text : value) {
        list.append(ToQString(text));
    }
    return {list};
}
QVariant ToVariant(const std::vector<std::map<std::string, std::string>>& value) {
    QList<QStringMap> list;
    for (const auto& entries : value) {
        QStringMap map;
        for (const auto& [key, text] : entries) {
            map.insert(ToQString(key), ToQString(text));
        }
        list.append(map);
    }
    return QVariant::fromValue(list);
}
QVariant ToVariant(const std::map<std::string, bool>& value) {
    QBoolMap map;
    for (const auto& [key, flag] : value) {
        map.insert(ToQString(key), flag);
    }
    return QVariant::fromValue(map);
}

std::optional<DBusValue> FromArgument(const QDBusArgument& argument) {
    const QString signature = argument.currentSignature();
    if (signature == QLatin1String("aa{ss}")) {
        std::vector<std::map<std::string, std::string>> value;
        for (const QStringMap& entries : qdbus_cast<QList<QStringMap>>(argument)) {
            auto& map = value.emplace_back();
            for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
                map.emplace(entry.key().toStdString(), entry.value().toStdString());
            }
        }
        return value;
    }
    if (signature == QLatin1String("a{sb}")) {
        std::map<std::string, bool> value;
        const QBoolMap entries = qdbus_cast<QBoolMap>(argument);
        for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
            value.emplace(entry.key().toStdString(), entry.value());
        }
        return value;
    }
    return std::nullopt;
}

std::optional<DBusValue> FromVariant(const QVariant& variant) {
    if (variant.metaType() == QMetaType::fromType<QDBusObjectPath>()) {
        return DBusObjectPath{qvariant_cast<QDBusObjectPath>(variant).path().toStdString()};
    }
    if (variant.metaType() == QMetaType::fromType<QDBusArgument>()) {
        return FromArgument(qvariant_cast<QDBusArgument>(variant));
    }
    switch (variant.typeId()) {
        case QMetaType::Bool:
            return variant.toBool();
        case QMetaType::Int:
            return std::int32_t{variant.toInt()};
        case QMetaType::UInt:
            return std::uint32_t{variant.toUInt()};
        case QMetaType::QString:
            return variant.toString().toStdString();
        case QMetaType::QStringList: {
            std::vector<std::string> value;
            for (const QString& text : variant.toStringList()) {
                value.push_back(text.toStdString());
            }
            return value;
        }
        default:
            return std::nullopt;
    }
}

std::size_t SizeOf(const std::string& text) {
    return text.size() + 8;
}
std::size_t SizeOf(const DBusObjectPath& path) {
    return SizeOf(path.value);
}
std::size_t SizeOf(const std::vector<std::string>& list) {
    std::size_t size = 8;
    for (const std::string& text : list) {
        size += SizeOf(text);
    }
    return size;
}
std::size_t SizeOf(const std::vector<std::map<std::string, std::string>>& list) {
    std::size_t size = 8;
    for (const auto& map : list) {
        for (const auto& [key, text] : map) {
            size += SizeOf(key) + SizeOf(text);
        }
    }
    return size;
}
std::size_t SizeOf(const std::map<std::string, bool>& map) {
    std::size_t size = 8;
    for (const auto& [key, flag] : map) {
        size += SizeOf(key) + sizeof(flag);
    }
    return size;
}
template <typename Number>
requires std::is_arithmetic_v<Number> std::size_t SizeOf(Number) {
    return 8;
}

}  // namespace

QString ToQString(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QVariantList ToVariants(const DBusArguments& arguments) {
    [[maybe_unused]] static const bool registered = RegisterTypes();
    QVariantList variants;
    for (const DBusValue& argument : arguments) {
        variants.append(std::visit([](const auto& value) { return ToVariant(value); }, argument));
    }
    return variants;
}

std::optional<DBusArguments> FromMessage(const QDBusMessage& message) {
    DBusArguments arguments;
    const QVariantList variants = message.arguments();
    for (const QVariant& variant : variants) {
        std::optional<DBusValue> value = FromVariant(variant);
        if (!value) {
            return std::nullopt;
        }
        arguments.push_back(std::move(*value));
    }
    return arguments;
}

std::size_t ApproximateSize(const DBusArguments& arguments) {
    std::size_t size = 0;
    for (const DBusValue& argument : arguments) {
        size += std::visit([](const auto& value) { return SizeOf(value); }, argument);
    }
    return size;
}

}  // namespace cmn
