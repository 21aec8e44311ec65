#pragma once

#include <string>
#include <string_view>

namespace useragent {

// The product's name for an application that calls itself so (the class of its windows, or its name on the
// accessibility bus): every build of a browser goes by one name; others keep their own. UTF-8.
std::string OwnerName(std::string_view applicationName);

}  // namespace useragent
