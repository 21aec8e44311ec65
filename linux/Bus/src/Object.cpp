#include "linux_bus/Object.h"

#include <fmt/format.h>

#include <set>
#include <string_view>
#include <variant>

#include "linux_bus/WellKnown.h"

namespace cmn::bus {

namespace {

constexpr const char* kDocumentType =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    "\"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n";

Error Unknown(const char* error, const char* kind, std::string_view name) {
    return {error, fmt::format("There is no {} \"{}\"", kind, name)};
}

// Who names no interface means any.
bool IsMeant(const std::string& interface, std::string_view wanted) {
    return wanted.empty() || interface == wanted;
}

}  // namespace

void Interface::describe(const char* kind, const char* name, const Names& names,
                         const std::vector<std::string>& in, const std::vector<std::string>& out) {
    description_ += fmt::format("<{} name=\"{}\">", kind, name);
    auto next = names.begin();
    const auto add = [&](const std::vector<std::string>& types, const char* direction) {
        for (const std::string& type : types) {
            description_ += fmt::format("<arg name=\"{}\" type=\"{}\" direction=\"{}\"/>",
                                        next != names.end() ? *next++ : "", type, direction);
        }
    };
    const bool isSignal = std::string_view(kind) == "signal";
    add(in, isSignal ? "out" : "in");
    add(out, "out");
    description_ += fmt::format("</{}>\n", kind);
}

void Interface::describeProperty(const char* name, const char* type) {
    description_ += fmt::format("<property name=\"{}\" type=\"{}\" access=\"read\"/>\n", name, type);
}

Result<AnyValue> Objects::property(const Object& object, const std::string& interface,
                                   const std::string& name) {
    for (const Interface& each : object) {
        const auto found = each.properties_.find(name);
        if (IsMeant(each.name_, interface) && found != each.properties_.end()) {
            return found->second();
        }
    }
    return Unknown(error::kUnknownProperty, "property", name);
}

Result<std::map<std::string, AnyValue>> Objects::properties(const Object& object,
                                                            const std::string& interface) {
    std::map<std::string, AnyValue> values;
    bool isKnown = false;
    for (const Interface& each : object) {
        if (IsMeant(each.name_, interface)) {
            isKnown = true;
            for (const auto& [name, get] : each.properties_) {
                values.emplace(name, get());
            }
        }
    }
    if (!isKnown) {
        return Unknown(error::kUnknownInterface, "interface", interface);
    }
    return values;
}

void Objects::add(const std::string& path, std::vector<Interface> interfaces) {
    Object& object = objects_[path] = std::move(interfaces);
    object.push_back(
        Interface(kProperties)
            .method("Get", {"interface", "name", "value"},
                    [&object](const std::string& interface, const std::string& name) {
                        return property(object, interface, name);
                    })
            .method("GetAll", {"interface", "values"},
                    [&object](const std::string& interface) { return properties(object, interface); })
            .method("Set", {"interface", "name", "value"},
                    [](const std::string&, const std::string&, const std::variant<std::monostate>&) {
                        return Result<Nothing>(Error{error::kPropertyReadOnly, "It cannot be written"});
                    }));
    object.push_back(
        Interface(kIntrospectable).method("Introspect", {"xml"}, [this, path] { return introspect(path); }));
}

std::string Objects::introspect(const std::string& path) const {
    std::string xml = std::string(kDocumentType) + "<node>\n";
    if (const auto found = objects_.find(path); found != objects_.end()) {
        for (const Interface& interface : found->second) {
            xml += fmt::format("<interface name=\"{}\">\n{}</interface>\n", interface.name_,
                               interface.description_);
        }
    }
    const std::string above = path.ends_with('/') ? path : path + '/';
    std::set<std::string> below;
    for (const auto& [other, object] : objects_) {
        if (other.starts_with(above) && other != above) {
            below.insert(other.substr(above.size(), other.find('/', above.size()) - above.size()));
        }
    }
    for (const std::string& name : below) {
        xml += fmt::format("<node name=\"{}\"/>\n", name);
    }
    return xml + "</node>\n";
}

Interface::Task Objects::find(const Question& question) const {
    const Message& message = question.message();
    const auto object = objects_.find(message.path());
    if (object == objects_.end()) {
        const bool isAbove = message.interface() == kIntrospectable && message.member() == "Introspect";
        const std::string xml = isAbove ? introspect(std::string(message.path())) : std::string();
        xml.find("<node ") != std::string::npos
            ? question.reply(xml)
            : question.fail(Unknown(error::kUnknownObject, "object", message.path()));
        return nullptr;
    }
    bool isKnown = false;
    for (const Interface& each : object->second) {
        if (IsMeant(each.name_, message.interface())) {
            isKnown = true;
            const auto method = each.methods_.find(message.member());
            if (method != each.methods_.end()) {
                return method->second(question);
            }
        }
    }
    question.fail(isKnown ? Unknown(error::kUnknownMethod, "method", message.member())
                          : Unknown(error::kUnknownInterface, "interface", message.interface()));
    return nullptr;
}

}  // namespace cmn::bus
