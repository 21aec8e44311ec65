#pragma once

#include <string>

namespace cmn {

// The first user, in the order of "ls", whose home below `usersRoot` holds the file `startFile`, given
// relative to the home. "" when there is none.
std::string InstalledUserBelow(const std::string& usersRoot, const std::string& startFile);

}  // namespace cmn
