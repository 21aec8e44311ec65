#pragma once

#include <QDBusMessage>
#include <QVariant>
#include <optional>

#include "linux_usercommon/DBusTypes.h"

// The one place where typed values and Qt's meet. Any thread.
namespace cmn {

// Text that is no UTF-8 is repaired; text behind a NUL cannot travel.
QVariantList ToVariants(DBusArguments arguments);

// Nothing when an argument has a type that no contract of the product uses.
std::optional<DBusArguments> FromMessage(const QDBusMessage& message);

QString ToQString(std::string_view text);

// Bytes that the arguments occupy in a message, about.
std::size_t ApproximateSize(const DBusArguments& arguments);

}  // namespace cmn
