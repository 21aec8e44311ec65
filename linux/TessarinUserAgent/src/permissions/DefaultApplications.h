#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "permissions/DesktopSession.h"

namespace useragent {

// The desktop files that the user and the system chose for opening what is of that type, most important
// first. `desktopNames` are those of the desktop, most specific first. Only looks at files.
std::vector<std::string> DefaultApplications(const XdgFolders& folders,
                                             const std::vector<std::string>& desktopNames,
                                             std::string_view type);

// The desktop files that say of themselves that they open what is of that type, as far as the desktop has
// taken note of it.
std::vector<std::string> KnownApplications(const XdgFolders& folders, std::string_view type);

}  // namespace useragent
