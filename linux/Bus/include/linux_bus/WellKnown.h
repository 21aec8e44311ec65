#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cmn::bus {

// The bus itself, as its clients call it.
inline constexpr const char* kBusName = "org.freedesktop.DBus";
inline constexpr const char* kBusPath = "/org/freedesktop/DBus";
inline constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
inline constexpr const char* kIntrospectable = "org.freedesktop.DBus.Introspectable";

// Names of errors.
namespace error {
inline constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* kDisconnected = "org.freedesktop.DBus.Error.Disconnected";
inline constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";
inline constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char* kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";
inline constexpr const char* kNoReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr const char* kPropertyReadOnly = "org.freedesktop.DBus.Error.PropertyReadOnly";
inline constexpr const char* kServiceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
inline constexpr const char* kTimeout = "org.freedesktop.DBus.Error.Timeout";  // our own deadline has passed
inline constexpr const char* kUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
inline constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char* kUnknownObject = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr const char* kUnknownProperty = "org.freedesktop.DBus.Error.UnknownProperty";
}  // namespace error

// The address lists of the two well-known buses: from the environment, else the usual sockets. Empty when
// unknown.
std::string SystemBusAddress();
std::string SessionBusAddress();

// The local sockets of an address list ("unix:path=/a;unix:abstract=b"), in order. Other ways to reach a bus
// are left out: some of them block, or start programs.
std::vector<std::string> LocalAddresses(std::string_view list);

}  // namespace cmn::bus
