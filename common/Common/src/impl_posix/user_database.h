#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/SystemUtils.h"

namespace cmn {

struct UserEntry {
    UserId id;
    std::uint32_t group;  // the first of his groups
    std::string name;
    std::string home;
};

// Empty for an unknown user.
std::optional<UserEntry> FindUser(const std::string& name);
std::optional<UserEntry> FindUser(UserId id);

}  // namespace cmn
