#pragma once

#include <memory>
#include <vector>

#include "accessibility/AtspiReader.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Reads the children of the reader's object that are showing, as an array of elements, with what a search
// asks of them next: role, and their own children. Any thread.
AXError ReadShowingChildren(const AtspiReader& reader, AXValue& value);

// Reads of what may be text fields all that may be asked of them next. An error when not all was answered.
AXError DescribeFields(const AtspiReader& reader, const std::vector<std::shared_ptr<AtspiElement>>& fields);

}  // namespace useragent
