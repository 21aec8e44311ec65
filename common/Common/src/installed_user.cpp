#include "installed_user.h"

#include <filesystem>
#include <sstream>
#include <system_error>

#include "common/SystemUtils.h"

namespace cmn {

namespace fs = std::filesystem;

std::string InstalledUserBelow(const std::string& usersRoot, const std::string& startFile) {
    std::istringstream users(ExecProcess("/bin/bash", {"-c", "ls " + usersRoot}, true));
    for (std::string name; std::getline(users, name);) {
        std::error_code error;
        if (!name.empty() && fs::exists(fs::path(usersRoot) / name / startFile, error))
            return name;
    }
    return {};
}

}  // namespace cmn
