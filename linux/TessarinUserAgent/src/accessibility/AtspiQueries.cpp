#include "accessibility/AtspiQueries.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <tuple>
#include <utility>

namespace useragent::atspi {
namespace {

using cmn::bus::Codec;
using cmn::bus::Error;
using cmn::bus::Message;
using cmn::bus::ObjectPath;
using cmn::bus::Result;
using cmn::bus::Variant;

constexpr const char* kStatusInterface = "org.a11y.Status";
const ObjectRef kSessionObject{"org.a11y.Bus", "/org/a11y/bus"};
const ObjectRef kRegistry{kRegistryName, kRegistryPath};
const ObjectRef kBus{cmn::bus::kBusName, cmn::bus::kBusPath};

Error OddAnswer() {
    return {cmn::bus::error::kFailed, "an answer of another shape"};
}

template <typename T>
Result<T> ReadOne(const Message& answer) {
    auto value = answer.readOne<T>();
    return value ? std::move(value) : Result<T>(OddAnswer());
}

template <typename T>
Result<T> ReadProperty(const Message& answer) {
    auto property = answer.readOne<Variant<T>>();
    return property ? Result<T>(std::move(property->value)) : OddAnswer();
}

Result<Done> ReadNothing(const Message& /*answer*/) {
    return Done();
}

Result<States> ReadStates(const Message& answer) {
    const auto words = answer.readOne<std::vector<std::uint32_t>>();
    if (!words) {
        return OddAnswer();
    }
    const auto half = [&](std::size_t i) { return i < words->size() ? States{(*words)[i]} : States{0}; };
    return half(0) | (half(1) << 32U);
}

Result<Objects> ReadObjects(const Message& answer) {
    cmn::bus::Reader list = answer.reader();
    if (answer.signature() != "a(so)" || !list.enter('a', "(so)")) {
        return OddAnswer();
    }
    Objects objects;
    for (std::size_t count = 0; sd_bus_message_at_end(list.message, 0) == 0; ++count) {
        std::tuple<std::string, ObjectPath> entry;
        if (count == kMostObjects || !Codec<decltype(entry)>::read(list, entry)) {
            return count == kMostObjects ? Error{cmn::bus::error::kTimeout, "too long a list"} : OddAnswer();
        }
        auto& [busName, path] = entry;
        if (!busName.empty() && path.value != kNullPath) {
            objects.push_back({std::move(busName), std::move(path.value)});
        }
    }
    return objects;
}

Result<ObjectRef> ReadReference(const Message& answer) {
    const auto property = answer.readOne<Variant<std::tuple<std::string, ObjectPath>>>();
    if (!property) {
        return OddAnswer();
    }
    const auto& [busName, path] = property->value;
    return ObjectRef{busName, path.value};
}

template <typename T, typename... Arguments>
Query<T> Call(const ObjectRef& object, const char* interface, const char* member,
              Result<T> (*read)(const Message&), Arguments... arguments) {
    std::function<bool(Message&)> write;
    if constexpr (sizeof...(arguments) > 0) {
        write = [arguments...](Message& call) { return call.append(arguments...); };
    }
    return {object.busName, object.path, interface, member, std::move(write), read};
}

template <typename T>
Query<T> Property(const ObjectRef& object, const char* interface, const char* name) {
    return Call(object, cmn::bus::kProperties, "Get", &ReadProperty<T>, interface, name);
}

}  // namespace

Query<Role> RoleOf(const ObjectRef& object) {
    return Call(object, kAccessibleInterface, "GetRole", &ReadOne<Role>);
}

Query<States> StatesOf(const ObjectRef& object) {
    return Call(object, kAccessibleInterface, "GetState", &ReadStates);
}

Query<std::string> NameOf(const ObjectRef& object) {
    return Property<std::string>(object, kAccessibleInterface, "Name");
}

Query<std::string> IdentifierOf(const ObjectRef& object) {
    return Property<std::string>(object, kAccessibleInterface, "AccessibleId");
}

Query<std::map<std::string, std::string>> AttributesOf(const ObjectRef& object) {
    return Call(object, kAccessibleInterface, "GetAttributes", &ReadOne<std::map<std::string, std::string>>);
}

Query<std::string> TextOf(const ObjectRef& object) {
    return Call(object, kTextInterface, "GetText", &ReadOne<std::string>, std::int32_t{0}, std::int32_t{-1});
}

Query<Objects> ChildrenOf(const ObjectRef& object) {
    return Call(object, kAccessibleInterface, "GetChildren", &ReadObjects);
}

// A match rule of the protocol has four conditions, each followed by the way its items are combined; those on
// attributes and interfaces are empty here; nothing is inverted.
Query<Objects> MatchesOf(const ObjectRef& object, States states, const std::vector<Role>& roles,
                         std::size_t most, bool descend) {
    constexpr std::int32_t kAll = 1;
    constexpr std::int32_t kAny = 2;  // of the roles: nothing has all of several, not even of one
    constexpr std::uint32_t kOrderOfTheTree = 1;
    std::vector<std::int32_t> roleBits(4);
    for (const Role role : roles) {
        roleBits.at(role / 32) |= static_cast<std::int32_t>(std::uint32_t{1} << (role % 32));
    }
    const std::tuple rule(std::vector{static_cast<std::int32_t>(states & 0xFFFFFFFFU),
                                      static_cast<std::int32_t>(states >> 32U)},
                          kAll, std::map<std::string, std::string>(), kAll, roleBits, kAny,
                          std::vector<std::string>(), kAll, false);
    return Call(object, kCollectionInterface, "GetMatches", &ReadObjects, rule, kOrderOfTheTree,
                static_cast<std::int32_t>(most), descend);
}

Query<Objects> ShowingChildrenOf(const ObjectRef& object) {
    return MatchesOf(object, States{} | State::showing, {}, kMostObjects + 1, false);
}

Query<Objects> ShowingPagesOf(const ObjectRef& object) {
    return MatchesOf(object, States{} | State::showing, {kRoleDocumentWeb}, 1, true);
}

Query<Objects> EntriesOf(const ObjectRef& object) {
    constexpr std::size_t kMostEntries = 8;
    return MatchesOf(object, {}, {kRoleComboBox, kRoleEntry, kRoleText}, kMostEntries, true);
}

Query<ObjectRef> ParentOf(const ObjectRef& object) {
    return Call(object, cmn::bus::kProperties, "Get", &ReadReference, kAccessibleInterface, "Parent");
}

Query<std::string> AddressOfPage(const ObjectRef& page) {
    return Call(page, "org.a11y.atspi.Document", "GetAttributeValue", &ReadOne<std::string>,
                std::string("DocURL"));
}

Query<Done> PingOf(const std::string& busName) {
    return Call({busName, kRootPath}, "org.freedesktop.DBus.Peer", "Ping", &ReadNothing);
}

Query<Objects> RegisteredApplications() {
    return ChildrenOf({kRegistryName, kRootPath});
}

Query<Done> Registration(const std::string& event, const std::string& busName) {
    return Call(kRegistry, kRegistryInterface, "RegisterEvent", &ReadNothing, event,
                std::vector<std::string>(), busName);
}

Query<Done> Deregistration(const std::string& event) {
    return Call(kRegistry, kRegistryInterface, "DeregisterEvent", &ReadNothing, event);
}

Query<std::vector<std::string>> Names() {
    return Call(kBus, cmn::bus::kBusName, "ListNames", &ReadOne<std::vector<std::string>>);
}

Query<std::uint32_t> ProcessIdOf(const std::string& busName) {
    return Call(kBus, cmn::bus::kBusName, "GetConnectionUnixProcessID", &ReadOne<std::uint32_t>, busName);
}

Query<bool> IsEnabled() {
    return Property<bool>(kSessionObject, kStatusInterface, "IsEnabled");
}

Query<Done> Enable() {
    return Call(kSessionObject, cmn::bus::kProperties, "Set", &ReadNothing, kStatusInterface, "IsEnabled",
                Variant<bool>{true});
}

Query<std::string> AddressOfAccessibilityBus() {
    return Call(kSessionObject, "org.a11y.Bus", "GetAddress", &ReadOne<std::string>);
}

std::optional<TextChange> TextChangeOf(const Message& event) {
    std::string detail;
    std::int32_t offset = 0;
    std::int32_t length = 0;
    std::variant<std::monostate, std::string> data;
    cmn::bus::Reader arguments = event.reader();
    const bool good =
        Codec<std::string>::read(arguments, detail) && Codec<std::int32_t>::read(arguments, offset) &&
        Codec<std::int32_t>::read(arguments, length) && Codec<decltype(data)>::read(arguments, data);
    const bool isInsertion = detail.starts_with("insert");
    auto* const text = std::get_if<std::string>(&data);
    if (!good || text == nullptr || offset < 0 || length < 0 ||
        (!isInsertion && !detail.starts_with("delete"))) {
        return std::nullopt;
    }
    return TextChange{isInsertion ? TextChange::Kind::inserted : TextChange::Kind::deleted,
                      static_cast<std::size_t>(offset), static_cast<std::size_t>(length), std::move(*text)};
}

bool IsOfEditing(const Message& event) {
    std::string state;
    cmn::bus::Reader arguments = event.reader();
    return Codec<std::string>::read(arguments, state) && (state == "editable" || state == "read-only");
}

AXError ErrorOf(const Error& error) {
    namespace names = cmn::bus::error;
    static constexpr std::array kMeanings{
        std::pair{names::kDisconnected, AXError::cannotComplete},
        std::pair{names::kNameHasNoOwner, AXError::cannotComplete},
        std::pair{names::kNoReply, AXError::cannotComplete},
        std::pair{names::kServiceUnknown, AXError::cannotComplete},
        std::pair{names::kTimeout, AXError::cannotComplete},
        std::pair{names::kUnknownObject, AXError::invalidUIElement},
        std::pair{names::kInvalidArgs, AXError::attributeUnsupported},
        std::pair{"org.freedesktop.DBus.Error.NotSupported", AXError::attributeUnsupported},
        std::pair{names::kUnknownInterface, AXError::attributeUnsupported},
        std::pair{names::kUnknownMethod, AXError::attributeUnsupported},
        std::pair{names::kUnknownProperty, AXError::attributeUnsupported},
    };
    const auto* const found = std::find_if(kMeanings.begin(), kMeanings.end(),
                                           [&](const auto& meaning) { return error.is(meaning.first); });
    return found != kMeanings.end() ? found->second : AXError::failure;
}

bool IsNobodyThere(const Error& error) {
    return error.is(cmn::bus::error::kServiceUnknown) || error.is(cmn::bus::error::kNameHasNoOwner);
}

bool IsTimeout(const Error& error) {
    return error.is(cmn::bus::error::kTimeout) || error.is(cmn::bus::error::kNoReply);
}

}  // namespace useragent::atspi
