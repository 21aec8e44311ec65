#include "ExportedObjects.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "linux_bus/Introspection.h"
#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

constexpr std::size_t kLongestQuotedPath = 200;  // it has no limit of its own

std::string Describe(const ServiceDescription& interface) {
    std::string members;
    for (const ServiceMethod& method : interface.methods) {
        std::vector<std::string> in;
        for (const char type : method.in) {
            in.emplace_back(1, type);
        }
        const std::vector<std::string> out(method.out.empty() ? 0 : 1, method.out);
        members += bus::DescribeMember("method", method.name, method.inNames, in, out, method.noReply);
    }
    return bus::DescribeInterface(interface.name, members) +
           bus::DescribeInterface(bus::kIntrospectable,
                                  bus::DescribeMember("method", "Introspect", {"xml"}, {}, {"s"}));
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
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(path);
    const auto below = bus::NamesBelow(path, entries_);
    if (entry == entries_.end() && below.empty() && path != "/") {
        return std::nullopt;
    }
    return bus::DescribeNode(entry != entries_.end() ? Describe(*entry->second.interface) : "", below);
}

}  // namespace cmn
