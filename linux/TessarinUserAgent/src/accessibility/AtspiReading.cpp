#include "accessibility/AtspiReading.h"

namespace useragent {

AXError AtspiReading::locate() {
    object_ = element_.object;
    if (element_.isApplication()) {
        const std::optional<QString> busName = applications_.busName(link_, element_.pid, deadline_);
        if (!busName) {
            return AXError::cannotComplete;
        }
        object_ = {*busName, atspi::kRootPath};
    } else if (element_.epoch != link_.epoch) {
        return AXError::invalidUIElement;
    }
    return isSilent(object_) ? AXError::cannotComplete : AXError::success;
}

bool AtspiReading::isSilent(const atspi::ObjectRef& object) const {
    return breaker_.isOpen(link_, object.busName);
}

Replies AtspiReading::ask(const std::vector<QDBusMessage>& calls) const {
    Replies replies = CallTogether(link_.connection, calls, deadline_);
    for (const QString& busName : replies.silent) {
        breaker_.trip(link_, busName, element_.pid);
    }
    if (!replies.messages.empty() && atspi::IsNobodyThere(replies.messages.front())) {
        applications_.forget(element_.pid, object_.busName);
    }
    return replies;
}

QDBusMessage AtspiReading::ask(const QDBusMessage& call) const {
    return ask(std::vector{call}).messages.front();
}

QDBusMessage AtspiReading::call(const char* method) const {
    return atspi::Call(object_, atspi::kAccessibleInterface, method);
}

QDBusMessage AtspiReading::property(const char* name) const {
    return atspi::GetProperty(object_, atspi::kAccessibleInterface, name);
}

}  // namespace useragent
