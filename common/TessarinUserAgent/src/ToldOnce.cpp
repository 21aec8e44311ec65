#include "useragent/ToldOnce.h"

#include <exception>
#include <fstream>
#include <system_error>
#include <utility>

#include "common/SystemUtils.h"
#include "common/log.h"
#include "common/log_place.h"

namespace useragent {

ToldOnce::ToldOnce(std::filesystem::path folder)
    : folder_(folder.is_absolute() ? std::move(folder) : std::filesystem::path()) {}

ToldOnce ToldOnce::OfThisUser() {
    return ToldOnce(cmn::GetUserLogFolder());
}

std::filesystem::path ToldOnce::fileFor(const std::string& what) const {
    return folder_ / ("com.tessarin.UserAgent.told-" + what);
}

bool ToldOnce::wasTold(const std::string& what) const {
    std::error_code error;
    return !folder_.empty() && std::filesystem::exists(fileFor(what), error);
}

void ToldOnce::setToldNoThrow(const std::string& what) const noexcept {
    try {
        if (folder_.empty()) {
            return;
        }
        cmn::MakeOwnFolder(folder_);
        if (!std::ofstream(fileFor(what), std::ios::app)) {
            TLOG_WARN("{} cannot be made: the user is told again at the next start", fileFor(what).string());
        }
    } catch (const std::exception& error) {
        TLOG_WARN("What the user was told cannot be kept: {}", error.what());
    }
}

}  // namespace useragent
