#pragma once

#include <cstdint>

#include "useragent/Accessibility.h"

namespace useragent {

// Searches the tree below `element` for a browser's address field, depth first in the order of the children.
// `depth` starts at 0. It is a budget rather than a nesting depth: every child descended into at one level
// costs one more than the child before it, which bounds the search in wide trees such as web content. Returns
// null when there is none. Failed reads make the search pass over what could not be read; nothing is logged.
AXElementRef FindURLElement(AccessibilityReader& accessibility, const AXElementRef& element,
                            std::uint32_t depth);

}  // namespace useragent
