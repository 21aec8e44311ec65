#pragma once

#include <vector>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiApplications.h"
#include "accessibility/AtspiElement.h"
#include "accessibility/BusCalls.h"
#include "accessibility/ResponseBreaker.h"

namespace useragent {

// One reading of one element under way: whom to ask, and until when.
class AtspiReading {
 public:
    AtspiReading(AtspiApplications& applications, ResponseBreaker& breaker, const BusLink& link,
                 const AtspiElement& element, Deadline deadline)
        : applications_(applications),
          breaker_(breaker),
          link_(link),
          element_(element),
          deadline_(deadline) {}

    // Finds the object behind the element: for an application its root. An error when it cannot be asked now.
    AXError locate();

    const AtspiElement& element() const { return element_; }
    const atspi::ObjectRef& object() const { return object_; }
    const BusLink& link() const { return link_; }
    Deadline deadline() const { return deadline_; }
    AtspiApplications& applications() const { return applications_; }

    // Whether the object's application is known not to answer.
    bool isSilent(const atspi::ObjectRef& object) const;

    // Remembers who does not answer or is gone.
    Replies ask(const std::vector<QDBusMessage>& calls) const;
    QDBusMessage ask(const QDBusMessage& call) const;

    // Calls of the object's main interface, and of its properties.
    QDBusMessage call(const char* method) const;
    QDBusMessage property(const char* name) const;

 private:
    AtspiApplications& applications_;
    ResponseBreaker& breaker_;
    const BusLink& link_;
    const AtspiElement& element_;
    const Deadline deadline_;
    atspi::ObjectRef object_;
};

}  // namespace useragent
