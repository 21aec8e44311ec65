#include "useragent/PermissionNotices.h"

#include <utility>

#include "common/log.h"

namespace useragent {

namespace {

constexpr const char* kFullDiskAccess = "full-disk-access";
constexpr const char* kFinderExtension = "finder-extension";

Notice FullDiskAccessNotice() {
    return {"Full disk access is missing", "Tessarin can protect only the files that it may read.",
            "How to grant it"};
}

Notice FinderExtensionNotice() {
    return {"The file manager has no entry for Tessarin",
            "With the entry \"Tessarin Properties\" in the menu of a file you see what was found in it.",
            "Set it up"};
}

}  // namespace

PermissionNotices::PermissionNotices(Environment environment) : environment_(std::move(environment)) {}

void PermissionNotices::review(std::optional<bool> fullDiskAccess) {
    if (fullDiskAccess == false && isToBeTold(kFullDiskAccess)) {
        tell(kFullDiskAccess, FullDiskAccessNotice(),
             [panes = environment_.panes] { panes->openFullDiskAccess(); });
    }
    FileManagerExtension& extension = *environment_.extension;
    if (isToBeTold(kFinderExtension) && extension.canBeEnabled() && !extension.isExtensionEnabled()) {
        tell(kFinderExtension, FinderExtensionNotice(),
             [extension = environment_.extension] { extension->showExtensionManagementInterface(); });
    }
}

bool PermissionNotices::isToBeTold(const std::string& permission) const {
    return !telling_.contains(permission) && !environment_.told.wasTold(permission);
}

void PermissionNotices::tell(const std::string& permission, const Notice& notice,
                             std::function<void()> mend) {
    telling_.insert(permission);
    environment_.notices->show(
        notice,
        [weakSelf = weak_from_this(), permission](const std::string& failure) {
            if (const auto self = weakSelf.lock()) {
                self->told(permission, failure);
            }
        },
        std::move(mend));
}

void PermissionNotices::told(const std::string& permission, const std::string& failure) {
    if (failure.empty()) {
        environment_.told.setToldNoThrow(permission);
        return;
    }
    telling_.erase(permission);
    if (failed_.insert(permission).second) {
        TLOG_WARN(
            "The user could not be told of the missing permission {}: {}; it is tried again at each "
            "refresh of the menu",
            permission, failure);
    }
}

}  // namespace useragent
