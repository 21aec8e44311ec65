#pragma once

#include <fmt/format.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "useragent/WindowList.h"

namespace useragent {

// Result of an accessibility call; values are those of the platform that defined them.
enum class AXError : std::int32_t {
    success = 0,
    failure = -25200,
    illegalArgument = -25201,
    invalidUIElement = -25202,
    cannotComplete = -25204,  // the application did not answer in time or went away
    attributeUnsupported = -25205,
    notificationUnsupported = -25207,
    apiDisabled = -25211,  // accessibility is switched off for the session
    noValue = -25212,
};

// One node of an application's accessibility tree. Immutable handle, may be shared and passed between
// threads.
class AXElement {
 public:
    virtual ~AXElement() = default;
};
using AXElementRef = std::shared_ptr<const AXElement>;

// A string as the platform delivers it. Immutable.
class AXString {
 public:
    virtual ~AXString() = default;

    // The text as NUL-terminated UTF-8 when the platform stores it so; null otherwise. Owned by this object.
    virtual const char* directUTF8() const = 0;

    // Largest number of UTF-8 bytes the text may need, without a terminating NUL.
    virtual std::size_t maximumUTF8Size() const = 0;

    // Converts into `buffer` of `size` bytes, with a terminating NUL. False, with the buffer's content
    // unspecified, when text and NUL do not fit or the text cannot be converted.
    virtual bool copyUTF8(char* buffer, std::size_t size) const = 0;
};
using AXStringRef = std::shared_ptr<const AXString>;

// An attribute's value: nothing of interest, a string, an element, or an array of values.
struct AXValue : std::variant<std::monostate, AXStringRef, AXElementRef, std::vector<AXValue>> {
    using variant::variant;
};

// Without the prefix of the platform that defined them: there such names are macros.
inline constexpr const char* kMainWindowAttribute = "AXMainWindow";
inline constexpr const char* kChildrenAttribute = "AXChildren";
inline constexpr const char* kRoleAttribute = "AXRole";
inline constexpr const char* kDescriptionAttribute = "AXDescription";
inline constexpr const char* kIdentifierAttribute = "AXIdentifier";
inline constexpr const char* kDOMIdentifierAttribute = "AXDOMIdentifier";
inline constexpr const char* kPlaceholderValueAttribute = "AXPlaceholderValue";
inline constexpr const char* kValueAttribute = "AXValue";
inline constexpr const char* kTextFieldRole = "AXTextField";
inline constexpr const char* kWebAreaRole = "AXWebArea";
inline constexpr const char* kMainWindowChangedNotification = "AXMainWindowChanged";
inline constexpr const char* kValueChangedNotification = "AXValueChanged";

// Reading the trees. Any thread. A read waits for the application at most the platform end's call deadline.
class AccessibilityReader {
 public:
    virtual ~AccessibilityReader() = default;

    // On success fills `value`. An attribute the element does not have is `attributeUnsupported` or
    // `noValue`.
    virtual AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                       AXValue& value) = 0;
};

// Called on the main thread.
using AXObserverCallback = std::function<void(const AXElementRef& element, const std::string& notification)>;

// A subscription to notifications of one process. Any thread.
class AXObserver {
 public:
    // Ends the subscription. A callback that is already running on the main thread may still finish.
    virtual ~AXObserver() = default;

    virtual AXError addNotification(const AXElementRef& element, const std::string& notification) = 0;

    // Callbacks arrive only between these two.
    virtual void addToMainRunLoop() = 0;
    virtual void removeFromMainRunLoop() = 0;
};

// The platform's accessibility interface. Any thread.
class Accessibility : public AccessibilityReader {
 public:
    // The element of the application with that process id; null when it cannot be made. Does not wait for the
    // application: one that does not exist or does not answer fails at the first read.
    virtual AXElementRef createApplication(std::int32_t pid) = 0;

    virtual AXError getPid(const AXElementRef& element, std::int32_t& pid) = 0;

    virtual AXError createObserver(std::int32_t pid, AXObserverCallback callback,
                                   std::unique_ptr<AXObserver>& observer) = 0;

    // Whether this process may use the interface now; the second shows the system's prompt when it may not.
    virtual bool isProcessTrusted() = 0;
    virtual bool isProcessTrustedWithPrompt() = 0;

    // Called once a polling cycle on the polling thread and without any lock, with the front-most window of
    // each browser found. While the window list fails with those found last, without their titles; not before
    // there was a list. The platform end looks at what is observed of them: an address that is another than
    // the one it told last is told as a changed value, a field that is gone or another main window as a
    // changed main window, so that a notification that was lost or never came leaves nothing wrong for
    // longer than one cycle. It finds out as well who of them answers at all, so that later reads of the
    // others fail at once.
    virtual void prepare(const std::vector<WindowInfo>& browsers) = 0;

    // Runs one polling cycle, with whatever the platform needs around it.
    virtual void runCycle(const std::function<void()>& cycle) { cycle(); }

    // How long a search for one window's address field may take.
    virtual std::chrono::nanoseconds searchDeadline() const = 0;
};

}  // namespace useragent

// Prints the plain integer code.
template <>
struct fmt::formatter<useragent::AXError> : fmt::formatter<std::int32_t> {
    template <typename FormatContext>
    auto format(useragent::AXError error, FormatContext& context) const {
        return fmt::formatter<std::int32_t>::format(static_cast<std::int32_t>(error), context);
    }
};
