#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "accessibility/AtspiProtocol.h"
#include "accessibility/TextMirror.h"
#include "linux_bus/Batch.h"
#include "useragent/Accessibility.h"

// What is asked over the accessibility bus, and how the answers are read. The other end is not trusted: an
// answer of another shape is none.
namespace useragent::atspi {

using cmn::bus::Query;

// Names one object on the accessibility bus.
struct ObjectRef {
    std::string busName;
    std::string path;
};
using Objects = std::vector<ObjectRef>;
using Done = std::monostate;  // an answer that says no more than that there is one

// A longer list counts as not answered in time: nobody could be asked about so many before any deadline.
inline constexpr std::size_t kMostObjects = 8192;

Query<Role> RoleOf(const ObjectRef& object);
Query<States> StatesOf(const ObjectRef& object);
Query<std::string> NameOf(const ObjectRef& object);
Query<std::string> IdentifierOf(const ObjectRef& object);
Query<std::map<std::string, std::string>> AttributesOf(const ObjectRef& object);
Query<std::string> TextOf(const ObjectRef& object);
// Without null references.
Query<Objects> ChildrenOf(const ObjectRef& object);
// Those that are showing, in order, without asking each of them.
Query<Objects> ShowingChildrenOf(const ObjectRef& object);
// The objects below another that have all of the states and one of the roles, if there are any; its children
// only, or at any depth. In the tree's order, no more than `most`.
Query<Objects> MatchesOf(const ObjectRef& object, States states, const std::vector<Role>& roles,
                         std::size_t most, bool descend);
// The web pages that are showing at or below the object, in order, no more than a few.
Query<Objects> ShowingPagesOf(const ObjectRef& object);
Query<std::string> AddressOfPage(const ObjectRef& page);
// What may be a text field, also where nothing is showing.
Query<Objects> EntriesOf(const ObjectRef& object);
Query<ObjectRef> ParentOf(const ObjectRef& object);
Query<Done> PingOf(const std::string& busName);

// The registry.
Query<Objects> RegisteredApplications();
Query<Done> Registration(const std::string& event, const std::string& busName);
// It can only be told to forget an event of all applications at once.
Query<Done> Deregistration(const std::string& event);

// The bus itself.
Query<std::vector<std::string>> Names();
Query<std::uint32_t> ProcessIdOf(const std::string& busName);

// The session bus: whether accessibility is on there, and the address of the accessibility bus.
Query<bool> IsEnabled();
Query<Done> Enable();
Query<std::string> AddressOfAccessibilityBus();

// What a text's event says; nothing when it cannot be read.
std::optional<TextChange> TextChangeOf(const cmn::bus::Message& event);

// Whether a state's event is about who may change the text.
bool IsOfEditing(const cmn::bus::Message& event);

AXError ErrorOf(const cmn::bus::Error& error);

// Whether nobody has the bus name that was called, or nobody answered in time.
bool IsNobodyThere(const cmn::bus::Error& error);
bool IsTimeout(const cmn::bus::Error& error);

}  // namespace useragent::atspi
