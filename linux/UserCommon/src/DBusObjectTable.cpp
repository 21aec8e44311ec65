#include "DBusObjectTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

#include "BusConnection.h"
#include "common/log.h"

namespace cmn {

namespace {

constexpr const char* kIntrospectable = "org.freedesktop.DBus.Introspectable";
constexpr std::size_t kLongestQuotedPath = 200;  // the only name in a message without a limit of its own

constexpr std::string_view kIntrospectionHead =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n<node>\n";
constexpr std::string_view kStandardInterfaces =
    " <interface name=\"org.freedesktop.DBus.Introspectable\">\n"
    "  <method name=\"Introspect\"><arg name=\"data\" type=\"s\" direction=\"out\"/></method>\n "
    "</interface>\n"
    " <interface name=\"org.freedesktop.DBus.Peer\">\n  <method name=\"Ping\"/>\n"
    "  <method name=\"GetMachineId\"><arg name=\"id\" type=\"s\" direction=\"out\"/></method>\n "
    "</interface>\n";

// "a{sb}i" is "a{sb}" and "i".
std::vector<std::string_view> CompleteTypes(std::string_view signature) {
    std::vector<std::string_view> types;
    while (!signature.empty()) {
        std::size_t length = std::min(signature.find_first_not_of('a'), signature.size() - 1) + 1;
        if (signature[length - 1] == '{' || signature[length - 1] == '(') {
            int depth = 1;
            while (depth > 0 && length < signature.size()) {
                const char c = signature[length++];
                depth += c == '{' || c == '(' ? 1 : 0;
                depth -= c == '}' || c == ')' ? 1 : 0;
            }
        }
        types.push_back(signature.substr(0, length));
        signature.remove_prefix(length);
    }
    return types;
}

std::string Describe(const DBusInterfaceDescription& interface) {
    std::string xml = fmt::format(" <interface name=\"{}\">\n", interface.name);
    for (const DBusMethod& method : interface.methods) {
        xml += fmt::format("  <method name=\"{}\">\n", method.name);
        std::size_t number = 0;
        for (const std::string_view type : CompleteTypes(method.in)) {
            const std::string name = number < method.inNames.size() ? method.inNames[number] : "value";
            xml += fmt::format("   <arg name=\"{}\" type=\"{}\" direction=\"in\"/>\n", name, type);
            ++number;
        }
        for (const std::string_view type : CompleteTypes(method.out)) {
            xml += fmt::format("   <arg type=\"{}\" direction=\"out\"/>\n", type);
        }
        if (method.noReply) {
            xml += "   <annotation name=\"org.freedesktop.DBus.Method.NoReply\" value=\"true\"/>\n";
        }
        xml += "  </method>\n";
    }
    return xml + " </interface>\n";
}

void Refuse(const IncomingCall& call, const DBusReply& reply, const char* error, const std::string& why) {
    TLOG_WARN("Message {}.{}({}) of {} refused: {}", call.interface, call.member, call.signature, call.sender,
              why);
    reply.error(error, why);
}

}  // namespace

void DBusObjectTable::add(const std::string& path, Entry entry) {
    const std::lock_guard lock(mutex_);
    entries_.insert_or_assign(path, std::move(entry));
}

DBusObjectPath DBusObjectTable::add(Entry entry) {
    const std::lock_guard lock(mutex_);
    for (const auto& [path, existing] : entries_) {
        if (existing.interface == entry.interface && !existing.object.owner_before(entry.object) &&
            !entry.object.owner_before(existing.object)) {
            return {path};
        }
    }
    std::erase_if(entries_, [](const auto& item) { return item.second.object.expired(); });
    std::string path = "/" + entry.interface->name;
    std::replace(path.begin(), path.end(), '.', '/');
    path += fmt::format("/{}", ++lastNumber_);
    entries_.insert_or_assign(path, std::move(entry));
    return {path};
}

void DBusObjectTable::clear() {
    std::map<std::string, Entry> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(entries_);
}

std::optional<DBusObjectTable::Entry> DBusObjectTable::find(const std::string& path) const {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(path);
    return entry != entries_.end() ? std::optional(entry->second) : std::nullopt;
}

void DBusObjectTable::deliver(const std::shared_ptr<DBusChannel>& peer, const IncomingCall& call,
                              const DBusReply& reply) const {
    if (call.interface == kIntrospectable && call.member == "Introspect") {
        if (auto xml = introspect(call.path)) {
            reply({std::move(*xml)});
            return;
        }
    }
    const std::optional<Entry> entry = find(call.path);
    if (!entry) {
        Refuse(call, reply, dbus_error::kUnknownObject,
               fmt::format("There is no object {}", call.path.substr(0, kLongestQuotedPath)));
        return;
    }
    if (!call.interface.empty() && call.interface != entry->interface->name) {
        Refuse(call, reply, dbus_error::kUnknownInterface, "The object does not have this interface");
        return;
    }
    const DBusMethod* const method = entry->interface->find(call.member);
    if (method == nullptr) {
        Refuse(call, reply, dbus_error::kUnknownMethod, "The interface does not have this method");
        return;
    }
    if (call.signature != method->in || !call.arguments) {
        Refuse(call, reply, dbus_error::kInvalidArgs, fmt::format("The method takes \"{}\"", method->in));
        return;
    }
    try {
        entry->handler(peer, method->name, *call.arguments, reply);
    } catch (const std::exception& e) {
        Refuse(call, reply, dbus_error::kFailed, e.what());
    } catch (...) {
        Refuse(call, reply, dbus_error::kFailed, "not a standard exception");
    }
    if (method->noReply) {
        reply({});  // for a caller that asks for an answer all the same
    }
}

std::optional<std::string> DBusObjectTable::introspect(const std::string& path) const {
    const std::string prefix = path == "/" ? path : path + "/";
    std::string body;
    std::set<std::string> children;
    const std::lock_guard lock(mutex_);
    for (const auto& [name, entry] : entries_) {
        if (name == path) {
            body = Describe(*entry.interface) + std::string(kStandardInterfaces);
        } else if (name.starts_with(prefix)) {
            children.insert(name.substr(prefix.size(), name.find('/', prefix.size()) - prefix.size()));
        }
    }
    if (body.empty() && children.empty() && path != "/") {
        return std::nullopt;
    }
    for (const std::string& child : children) {
        body += fmt::format(" <node name=\"{}\"/>\n", child);
    }
    return std::string(kIntrospectionHead) + body + "</node>\n";
}

}  // namespace cmn
