#include <sys/kauth.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "FileUser.h"
#include "common/exceptions.h"
#include "common/log.h"
#include "impl_posix/user_database.h"

// A thread can take on the rights of another user by itself. The system finds the groups by the user, so only
// the first one is stated.
namespace host {

namespace {

[[noreturn]] void Refuse(const std::string& reason) {
    throw_with_trace(std::runtime_error(reason));
}

// The system discourages this for programs whose parts do not know each other's threads. Here it lasts for a
// call of the system.
bool SetThreadUser(uid_t user, gid_t group) {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    return pthread_setugid_np(user, group) == 0;
#pragma clang diagnostic pop
}

}  // namespace

UserIdentity LookUpUser(uid_t user) {
    const auto entry = cmn::FindUser(user);
    if (!entry) {
        Refuse("The user " + std::to_string(user) + " is not known");
    }
    return {user, entry->group, {}};
}

FileUser::Rights::Rights(const std::optional<UserIdentity>& user) {
    if (!user) {
        return;
    }
    const UserIdentity before{geteuid(), getegid(), {}};
    if (!SetThreadUser(user->user, user->group)) {
        Refuse("The host may not take on the rights of other users");
    }
    before_ = before;
    if (geteuid() != user->user || getegid() != user->group) {
        giveBack();
        Refuse("The host may not take on the rights of other users");
    }
}

FileUser::Rights::~Rights() {
    if (before_) {
        giveBack();
    }
}

void FileUser::Rights::giveBack() {
    const int error = errno;  // of what was done
    if (!SetThreadUser(KAUTH_UID_NONE, KAUTH_GID_NONE) || geteuid() != before_->user) {
        TLOG_ERROR("The rights of a user could not be given back -- the host ends");
        std::abort();
    }
    errno = error;
}

}  // namespace host
