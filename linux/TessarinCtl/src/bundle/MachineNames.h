#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/Redaction.h"

namespace ctl {

// What people and this machine are called: accounts of the machine that are no system's, with the names in
// full, this user, and the host.
std::vector<std::pair<cmn::SecretKind, std::string>> NamesOnThisMachine();

}  // namespace ctl
