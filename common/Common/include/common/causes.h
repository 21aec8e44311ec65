#pragma once

#include <exception>
#include <string>
#include <vector>

namespace cmn {

// The texts of what led to an exception, that is of those nested in it, the next outer one first; the text of
// the exception alone rarely says enough to mend it.
std::vector<std::string> CausesOf(const std::exception& error);

}  // namespace cmn
