#include "DBusMarshalling.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QStringList>
#include <memory>
#include <type_traits>
#include <utility>

#include "common/utf8.h"
#include "linux_usercommon/RegisterDBusType.h"

namespace cmn {

namespace {

using Records = std::vector<std::map<std::string, std::string>>;

// Records on their way into a message: written as they are, without a copy in Qt's containers.
struct RecordsArgument {
    std::shared_ptr<const Records> records;
};

using QStringMap = QMap<QString, QString>;
using QBoolMap = QMap<QString, bool>;

QDBusArgument& operator<<(QDBusArgument& argument, const RecordsArgument& value) {
    argument.beginArray(QMetaType::fromType<QStringMap>());
    if (value.records) {
        for (const auto& record : *value.records) {
            argument.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
            for (const auto& [key, text] : record) {
                argument.beginMapEntry();
                argument << ToQString(key) << ToQString(text);
                argument.endMapEntry();
            }
            argument.endMap();
        }
    }
    argument.endArray();
    return argument;
}

std::string ReadText(const QDBusArgument& argument) {
    QString text;
    argument >> text;
    return text.toStdString();
}

Records ReadRecords(const QDBusArgument& argument) {
    Records records;
    argument.beginArray();
    while (!argument.atEnd()) {
        auto& record = records.emplace_back();
        argument.beginMap();
        while (!argument.atEnd()) {
            argument.beginMapEntry();
            std::string key = ReadText(argument);
            // Usually they come in the order of the keys. The last of several that are equal counts.
            record.insert_or_assign(record.end(), std::move(key), ReadText(argument));
            argument.endMapEntry();
        }
        argument.endMap();
    }
    argument.endArray();
    return records;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, RecordsArgument& value) {
    value.records = std::make_shared<const Records>(ReadRecords(argument));
    return argument;
}

bool RegisterTypes() {
    RegisterDBusType<QStringMap>();
    RegisterDBusType<RecordsArgument>();
    RegisterDBusType<QBoolMap>();
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
QVariant ToVariant(Records&& value) {
    return QVariant::fromValue(RecordsArgument{std::make_shared<const Records>(std::move(value))});
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
        return ReadRecords(argument);
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

constexpr std::size_t kLongText = std::size_t{1} << 20;

std::size_t SizeOf(const std::string& text) {
    // Repaired text may have three bytes for each wrong one. Only for long ones is it worth to look.
    const std::size_t growth = text.size() > kLongText && !IsValidUtf8(text) ? 3 : 1;
    return growth * text.size() + 8;
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
        size += 8;
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

QVariantList ToVariants(DBusArguments arguments) {
    [[maybe_unused]] static const bool registered = RegisterTypes();
    QVariantList variants;
    for (DBusValue& argument : arguments) {
        variants.append(
            std::visit([](auto&& value) { return ToVariant(std::forward<decltype(value)>(value)); },
                       std::move(argument)));
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
