#pragma once

#include <initializer_list>
#include <string>

#include "accessibility/AtspiReading.h"
#include "accessibility/ShowingChildren.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Reads attributes of elements from the bus. Any thread. An application that leaves a read unanswered is not
// asked again until it has answered a ping.
class AtspiReader {
 public:
    AtspiReader(AtspiApplications& applications, ResponseBreaker& breaker)
        : applications_(applications), breaker_(breaker) {}

    AXError read(const BusLink& link, const AtspiElement& element, const std::string& attribute,
                 AXValue& value, Deadline deadline);

    // The object behind an element: for an application its root. An error when it cannot be asked now.
    AXError locate(const BusLink& link, const AtspiElement& element, Deadline deadline,
                   atspi::ObjectRef& object);

 private:
    AXError readLocated(const AtspiReading& reading, const std::string& attribute, AXValue& value);

    AtspiApplications& applications_;
    ResponseBreaker& breaker_;
    ShowingChildren showingChildren_;
};

}  // namespace useragent
