#include "accessibility/AtspiObserver.h"

#include "accessibility/ApplicationWatch.h"

namespace useragent {

AXError AtspiObserver::addNotification(const AXElementRef& element, const std::string& notification) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    const std::shared_ptr<AccessibilityBus> bus = bus_.lock();
    if (!bus || !target || target->pid != pid_) {
        return AXError::illegalArgument;
    }
    const bool isWindow = notification == kMainWindowChangedNotification;
    if ((!isWindow && notification != kValueChangedNotification) || isWindow != target->isApplication()) {
        return AXError::notificationUnsupported;
    }
    const cmn::bus::Deadline deadline = bus->deadline();
    const std::shared_ptr<Session> session = bus->session(deadline);
    if (!session) {
        return AXError::apiDisabled;
    }
    const std::shared_ptr<ApplicationWatch> watch = session->watch(pid_, deadline);
    if (!watch || session->silent->isSilent(watch->busName())) {
        return AXError::cannotComplete;
    }
    if (isWindow) {
        return watch->listenToWindows(listener_);
    }
    return target->session.lock() == session ? watch->listenToField(listener_, *target)
                                             : AXError::invalidUIElement;
}

}  // namespace useragent
