#pragma once

#include "accessibility/AtspiReader.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Reads the children of the reader's object that are showing, as an array of elements, with what a search
// asks of them next: role, and their own children. Any thread.
AXError ReadShowingChildren(const AtspiReader& reader, AXValue& value);

}  // namespace useragent
