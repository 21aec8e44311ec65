#include "xpccommon/ServiceOwners.h"

#include <utility>

#include "common/log.h"

namespace cmn {

namespace {
constexpr std::uint32_t kRoot = 0;
}  // namespace

ServiceOwners OwnersOf(const proto::TSettings& settings) {
    return settings.RequireRootServices ? ServiceOwners::root : ServiceOwners::anybody;
}

ServiceOwnerCheck::ServiceOwnerCheck(std::string machServiceName, ServiceOwners allowed)
    : machServiceName_(std::move(machServiceName)), allowed_(allowed) {}

bool ServiceOwnerCheck::allows(const XPCConnection& connection) const {
    if (allowed_ == ServiceOwners::anybody) {
        return true;
    }
    const auto owner = connection.peer();
    return owner && owner->userID == kRoot;
}

bool ServiceOwnerCheck::review(const XPCConnection& connection) {
    const auto owner = connection.peer();
    if (owner && owner->userID != kRoot && !told_.exchange(true)) {
        if (allowed_ == ServiceOwners::root) {
            TLOG_WARN(
                "The service {} is run by the user with the id {} and not by root, so it is not used, as "
                "RequireRootServices in the settings demands. An administrator should see who runs it",
                machServiceName_, owner->userID);
        } else {
            TLOG_WARN(
                "The service {} is run by the user with the id {} and not by root: that user gets browsers' "
                "addresses and files' paths. An administrator should see who runs it, and can forbid such "
                "services with RequireRootServices in the settings",
                machServiceName_, owner->userID);
        }
    }
    return allows(connection);
}

}  // namespace cmn
