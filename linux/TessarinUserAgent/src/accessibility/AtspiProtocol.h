#pragma once

#include <cstdint>
#include <string>

// Names and numbers of the AT-SPI2 protocol, and their meaning for the product.
namespace useragent::atspi {

inline constexpr const char* kRegistryName = "org.a11y.atspi.Registry";
inline constexpr const char* kRegistryPath = "/org/a11y/atspi/registry";
inline constexpr const char* kRegistryInterface = "org.a11y.atspi.Registry";
inline constexpr const char* kRootPath = "/org/a11y/atspi/accessible/root";
inline constexpr const char* kNullPath = "/org/a11y/atspi/null";
inline constexpr const char* kAccessibleInterface = "org.a11y.atspi.Accessible";
inline constexpr const char* kCollectionInterface = "org.a11y.atspi.Collection";
inline constexpr const char* kTextInterface = "org.a11y.atspi.Text";
inline constexpr const char* kObjectEventInterface = "org.a11y.atspi.Event.Object";
inline constexpr const char* kWindowEventInterface = "org.a11y.atspi.Event.Window";
inline constexpr const char* kTextChangedEvent = "object:text-changed";
inline constexpr const char* kEditableChangedEvent = "object:state-changed:editable";
inline constexpr const char* kReadOnlyChangedEvent = "object:state-changed:read-only";
inline constexpr const char* kWindowActivateEvent = "window:activate";
inline constexpr const char* kWindowRestoreEvent = "window:restore";
inline constexpr const char* kWindowMinimizeEvent = "window:minimize";
inline constexpr const char* kWindowDestroyEvent = "window:destroy";

using Role = std::uint32_t;

inline constexpr Role kRoleComboBox = 11;
inline constexpr Role kRoleFrame = 23;
inline constexpr Role kRoleText = 61;
inline constexpr Role kRoleApplication = 75;
inline constexpr Role kRoleEntry = 79;
inline constexpr Role kRoleDocumentWeb = 95;

// The values are bit numbers.
enum class State : unsigned {
    active = 1,
    defunct = 6,
    editable = 7,
    iconified = 15,
    multiLine = 17,
    showing = 25,
    singleLine = 26,
};

// The states of one object, one bit each.
using States = std::uint64_t;

constexpr States operator|(State left, State right) {
    return (States{1} << static_cast<unsigned>(left)) | (States{1} << static_cast<unsigned>(right));
}
constexpr States operator|(States left, State right) {
    return left | (States{1} << static_cast<unsigned>(right));
}
constexpr bool Has(States states, State state) {
    return (states >> static_cast<unsigned>(state) & 1) != 0;
}

// Whether the states decide if this is a text field.
bool MayBeTextField(Role role);

// The role's name as the product knows it; "AXUnknown" for roles without a counterpart.
std::string AXRoleName(Role role, States states);

}  // namespace useragent::atspi
