#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cmn {

// Path of a remote object. "/" stands for none.
struct DBusObjectPath {
    std::string value = "/";

    bool isNone() const { return value == "/"; }
    bool operator==(const DBusObjectPath&) const = default;
};

// One argument of a message; strings are UTF-8 without NUL. In the order of the alternatives, the D-Bus
// signatures are b, i, u, s, o, as, aa{ss}, a{sb}: all that the product's contracts use.
using DBusValue =
    std::variant<bool, std::int32_t, std::uint32_t, std::string, DBusObjectPath, std::vector<std::string>,
                 std::vector<std::map<std::string, std::string>>, std::map<std::string, bool>>;
using DBusArguments = std::vector<DBusValue>;

std::string_view DBusSignature(const DBusValue& value);
std::string DBusSignature(const DBusArguments& arguments);

// An error as it travels.
struct DBusError {
    std::string name;  // for example "org.freedesktop.DBus.Error.ServiceUnknown"
    std::string message;
};

namespace dbus_error {
inline constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* kDisconnected = "org.freedesktop.DBus.Error.Disconnected";
inline constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";
inline constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char* kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";
inline constexpr const char* kNoReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr const char* kServiceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
inline constexpr const char* kUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
inline constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char* kUnknownObject = "org.freedesktop.DBus.Error.UnknownObject";
}  // namespace dbus_error

}  // namespace cmn
