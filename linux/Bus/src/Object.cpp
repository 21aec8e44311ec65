#include "linux_bus/Object.h"

#include <fmt/format.h>

#include <string_view>
#include <variant>

#include "linux_bus/Introspection.h"
#include "linux_bus/WellKnown.h"

namespace cmn::bus {

namespace {

Error Unknown(const char* error, const char* kind, std::string_view name) {
    return {error, fmt::format("There is no {} \"{}\"", kind, name)};
}

// Who names no interface means any.
bool IsMeant(const std::string& interface, std::string_view wanted) {
    return wanted.empty() || interface == wanted;
}

}  // namespace

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

std::string Objects::introspect(std::string_view path) const {
    std::string interfaces;
    if (const auto found = objects_.find(path); found != objects_.end()) {
        for (const Interface& interface : found->second) {
            interfaces += DescribeInterface(interface.name_, interface.description_);
        }
    }
    return DescribeNode(interfaces, NamesBelow(path, objects_));
}

Interface::Task Objects::find(const Question& question) const {
    const Message& message = question.message();
    const auto object = objects_.find(message.path());
    if (object == objects_.end()) {
        const bool looksAtIt = message.interface() == kIntrospectable && message.member() == "Introspect";
        looksAtIt && !NamesBelow(message.path(), objects_).empty()
            ? question.reply(introspect(message.path()))
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
