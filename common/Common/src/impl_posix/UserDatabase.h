#pragma once

#include <optional>
#include <string>

#include "common/SystemUtils.h"

namespace cmn {

struct UserEntry {
    UserId id;
    std::string name;
    std::string home;
};

// Empty for an unknown user.
std::optional<UserEntry> FindUser(const std::string& name);
std::optional<UserEntry> FindUser(UserId id);

}  // namespace cmn
