#include "accessibility/AtspiReader.h"

#include <memory>
#include <utility>

#include "accessibility/MainWindow.h"

namespace useragent {
namespace {

AXError GiveText(const QDBusMessage& reply, const std::optional<QString>& text, AXValue& value) {
    if (!text) {
        return atspi::ErrorOf(reply);
    }
    value = MakeAXString(*text);
    return AXError::success;
}

// Browsers of the Chromium family build the tree of a window once somebody asks it for its attributes.
void CareForContent(const AtspiReading& reading, const atspi::ObjectRef& window, const QDBusMessage& list) {
    const auto isEmpty = [&](const QDBusMessage& reply) {
        const auto children = atspi::ReadObjects(reply, reading.deadline());
        return children && children->empty();
    };
    bool staysEmpty = isEmpty(list);
    if (staysEmpty) {
        staysEmpty = isEmpty(reading
                                 .ask({atspi::Call(window, atspi::kAccessibleInterface, "GetAttributes"),
                                       atspi::Call(window, atspi::kAccessibleInterface, "GetChildren")})
                                 .messages.back());
    }
    reading.applications().noteWindowContent(reading.element().pid, staysEmpty);
}

AXError ReadMainWindow(const AtspiReading& reading, AXValue& value) {
    const QDBusMessage list = reading.ask(reading.call("GetChildren"));
    const auto children = atspi::ReadObjects(list, reading.deadline());
    if (!children) {
        return Clock::now() >= reading.deadline() ? AXError::cannotComplete : atspi::ErrorOf(list);
    }
    if (children->size() > kMostTopLevels) {
        return AXError::cannotComplete;
    }
    std::vector<QDBusMessage> calls;
    for (const atspi::ObjectRef& child : *children) {
        calls.push_back(atspi::Call(child, atspi::kAccessibleInterface, "GetRole"));
        calls.push_back(atspi::Call(child, atspi::kAccessibleInterface, "GetState"));
        calls.push_back(atspi::GetProperty(child, atspi::kAccessibleInterface, "Name"));
        calls.push_back(atspi::Call(child, atspi::kAccessibleInterface, "GetChildren"));
    }
    const Replies replies = reading.ask(calls);
    if (!replies.complete) {
        return AXError::cannotComplete;
    }
    std::vector<TopLevel> windows;
    for (std::size_t i = 0; i < children->size(); ++i) {
        const QDBusMessage* const answers = &replies.messages[4 * i];
        windows.push_back({(*children)[i].path, atspi::ReadNumber(answers[0]).value_or(0),
                           atspi::ReadStates(answers[1]).value_or(0),
                           atspi::ReadStringProperty(answers[2]).value_or(QString())});
    }
    const std::int32_t pid = reading.element().pid;
    const std::optional<std::size_t> chosen =
        ChooseMainWindow(windows, reading.applications().mainWindow(pid));
    if (!chosen) {
        return AXError::noValue;
    }
    CareForContent(reading, (*children)[*chosen], replies.messages[4 * *chosen + 3]);
    reading.applications().setMainWindow(pid, (*children)[*chosen].path);
    const auto window = std::make_shared<AtspiElement>(pid, reading.link().epoch, (*children)[*chosen]);
    window->nature = {windows[*chosen].role, windows[*chosen].states};
    value = AXElementRef(window);
    return AXError::success;
}

AXError ReadRole(const AtspiReading& reading, AXValue& value) {
    std::optional<AtspiElement::Nature> nature = reading.element().nature;
    if (!nature) {
        const Replies replies = reading.ask({reading.call("GetRole"), reading.call("GetState")});
        const auto role = atspi::ReadNumber(replies.messages[0]);
        const auto states = atspi::ReadStates(replies.messages[1]);
        if (!role || !states) {
            return atspi::ErrorOf(replies.messages[role ? 1 : 0]);
        }
        nature = {*role, *states};
    }
    value = MakeAXString(QString::fromStdString(atspi::AXRoleName(nature->role, nature->states)));
    return AXError::success;
}

AXError ReadIdentifier(const AtspiReading& reading, AXValue& value) {
    const QDBusMessage reply = reading.ask(reading.property("AccessibleId"));
    const auto identifier = atspi::ReadStringProperty(reply);
    return identifier && identifier->isEmpty() ? AXError::noValue : GiveText(reply, identifier, value);
}

AXError ReadObjectAttribute(const AtspiReading& reading, std::initializer_list<const char*> names,
                            AXValue& value) {
    const QDBusMessage reply = reading.ask(reading.call("GetAttributes"));
    const auto attributes = atspi::ReadAttributes(reply);
    if (!attributes) {
        return atspi::ErrorOf(reply);
    }
    for (const char* const name : names) {
        const auto found = attributes->constFind(QLatin1String(name));
        if (found != attributes->constEnd()) {
            value = MakeAXString(*found);
            return AXError::success;
        }
    }
    return AXError::noValue;
}

}  // namespace

AXError AtspiReader::read(const BusLink& link, const AtspiElement& element, const std::string& attribute,
                          AXValue& value, Deadline deadline) {
    if (attribute == kValueAttribute && element.value) {
        value = MakeAXString(*element.value);
        return AXError::success;
    }
    AtspiReading reading(applications_, breaker_, link, element, deadline);
    AXError error = reading.locate();
    if (error != AXError::success) {
        return error;
    }
    error = readLocated(reading, attribute, value);
    const QString used = reading.object().busName;
    if (error != AXError::success && element.isApplication() && reading.locate() == AXError::success &&
        reading.object().busName != used) {
        // The bus name was out of date: the process has another one now.
        error = readLocated(reading, attribute, value);
    }
    return error;
}

AXError AtspiReader::locate(const BusLink& link, const AtspiElement& element, Deadline deadline,
                            atspi::ObjectRef& object) {
    AtspiReading reading(applications_, breaker_, link, element, deadline);
    const AXError error = reading.locate();
    object = reading.object();
    return error;
}

AXError AtspiReader::readLocated(const AtspiReading& reading, const std::string& attribute, AXValue& value) {
    if (attribute == kChildrenAttribute) {
        std::vector<AXValue> children;
        const AXError error = showingChildren_.read(reading, children);
        value = std::move(children);
        return error;
    }
    if (attribute == kRoleAttribute) {
        return ReadRole(reading, value);
    }
    if (attribute == kValueAttribute) {
        const QDBusMessage reply = reading.ask(atspi::GetText(reading.object()));
        return GiveText(reply, atspi::ReadString(reply), value);
    }
    if (attribute == kDescriptionAttribute && reading.element().name) {
        value = MakeAXString(*reading.element().name);
        return AXError::success;
    }
    if (attribute == kDescriptionAttribute) {
        const QDBusMessage reply = reading.ask(reading.property("Name"));
        return GiveText(reply, atspi::ReadStringProperty(reply), value);
    }
    if (attribute == kIdentifierAttribute) {
        return ReadIdentifier(reading, value);
    }
    if (attribute == kDOMIdentifierAttribute) {
        return ReadObjectAttribute(reading, {"id"}, value);
    }
    if (attribute == kPlaceholderValueAttribute) {
        return ReadObjectAttribute(reading, {"placeholder", "placeholder-text"}, value);
    }
    if (attribute == kMainWindowAttribute && reading.element().isApplication()) {
        return ReadMainWindow(reading, value);
    }
    return AXError::attributeUnsupported;
}

}  // namespace useragent
