#include "ExportedObjects.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

constexpr std::size_t kLongestQuotedPath = 200;  // it has no limit of its own

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

std::string Describe(const ServiceDescription& interface) {
    std::string xml = fmt::format(" <interface name=\"{}\">\n", interface.name);
    for (const ServiceMethod& method : interface.methods) {
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

}  // namespace

const ServiceMethod* ServiceDescription::find(std::string_view method) const {
    const auto found = std::find_if(methods.begin(), methods.end(),
                                    [&](const ServiceMethod& candidate) { return candidate.name == method; });
    return found != methods.end() ? &*found : nullptr;
}

void ExportedObjects::add(const std::string& path, Entry entry) {
    const std::lock_guard lock(mutex_);
    entries_.insert_or_assign(path, std::move(entry));
}

bus::ObjectPath ExportedObjects::add(Entry entry) {
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

void ExportedObjects::clear() {
    std::map<std::string, Entry, std::less<>> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(entries_);
}

bus::Result<ExportedObjects::Found> ExportedObjects::find(const bus::Message& message) const {
    if (message.interface() == bus::kIntrospectable && message.member() == "Introspect") {
        if (auto xml = introspect(message.path())) {
            static const ServiceMethod kIntrospect{"Introspect", "", "s"};
            return Found{[xml = std::move(*xml)](const auto&, const auto&, const bus::Question& question) {
                             question.reply(xml);
                         },
                         nullptr, &kIntrospect};
        }
    }
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(message.path());
    if (entry == entries_.end()) {
        return bus::Error{bus::error::kUnknownObject,
                          fmt::format("There is no object {}", message.path().substr(0, kLongestQuotedPath))};
    }
    const auto& interface = entry->second.interface;
    if (!message.interface().empty() && message.interface() != interface->name) {
        return bus::Error{bus::error::kUnknownInterface, "The object does not have this interface"};
    }
    const ServiceMethod* const method = interface->find(message.member());
    if (method == nullptr) {
        return bus::Error{bus::error::kUnknownMethod, "The interface does not have this method"};
    }
    if (message.signature() != method->in) {
        return bus::Error{bus::error::kInvalidArgs, fmt::format("The method takes \"{}\"", method->in)};
    }
    return Found{entry->second.handler, interface, method};
}

std::optional<std::string> ExportedObjects::introspect(std::string_view path) const {
    const std::string prefix = path == "/" ? "/" : std::string(path) + "/";
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
