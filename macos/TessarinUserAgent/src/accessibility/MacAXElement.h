#pragma once

#import <ApplicationServices/ApplicationServices.h>

#include <utility>

#import "common_mac/CFAutoPointer.h"
#include "useragent/Accessibility.h"

namespace useragent {

// An element of the platform's.
class MacAXElement final : public AXElement {
 public:
    explicit MacAXElement(cmn::CFAutoPointer element) : element_(std::move(element)) {}

    AXUIElementRef get() const { return static_cast<AXUIElementRef>(element_.get()); }

    // The platform's element behind a handle of this end; null for null.
    static AXUIElementRef Of(const AXElementRef& element);

 private:
    const cmn::CFAutoPointer element_;
};

// The value of an attribute: strings, elements and arrays of them; anything else is of no interest.
AXValue ToAXValue(const cmn::CFAutoPointer& value);

}  // namespace useragent
