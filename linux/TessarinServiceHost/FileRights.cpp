#include <grp.h>
#include <linux/securebits.h>
#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "FileUser.h"
#include "common/exceptions.h"
#include "common/log.h"
#include "impl_posix/user_database.h"

namespace host {

namespace {

// More than any system allows a user.
constexpr std::size_t kMostGroups = 65'536;

[[noreturn]] void Refuse(const std::string& reason) {
    throw_with_trace(std::runtime_error(reason));
}

// The library's function of this name changes all threads of the process, the system's only the calling one.
bool SetGroups(const std::vector<gid_t>& groups) {
    static_assert(sizeof(long) == 8, "the call of other systems has groups of 16 bits");
    return syscall(SYS_setgroups, groups.size(), groups.data()) == 0;
}

constexpr auto kNoID = static_cast<uid_t>(-1);  // given to the two functions it changes nothing

uid_t CurrentUser() {
    return static_cast<uid_t>(setfsuid(kNoID));
}

gid_t CurrentGroup() {
    return static_cast<gid_t>(setfsgid(kNoID));
}

bool TakeOn(const UserIdentity& identity) {
    if (!SetGroups(identity.groups)) {
        return false;
    }
    setfsgid(identity.group);
    setfsuid(identity.user);
    return CurrentUser() == identity.user && CurrentGroup() == identity.group;
}

UserIdentity CurrentIdentity() {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, getgroups(0, nullptr))));
    if (getgroups(static_cast<int>(groups.size()), groups.data()) != static_cast<int>(groups.size())) {
        Refuse("The host's own groups are not known");
    }
    return {CurrentUser(), CurrentGroup(), std::move(groups)};
}

[[noreturn]] void EndHost() {
    TLOG_ERROR("The rights of a user could not be given back -- the host ends");
    std::abort();
}

}  // namespace

UserIdentity LookUpUser(uid_t user) {
    const auto entry = cmn::FindUser(user);
    if (!entry) {
        Refuse("The user " + std::to_string(user) + " is not known");
    }
    std::vector<gid_t> groups(64);
    int count = static_cast<int>(groups.size());
    while (getgrouplist(entry->name.c_str(), entry->group, groups.data(), &count) < 0) {
        if (groups.size() >= kMostGroups) {
            Refuse("The user " + std::to_string(user) + " has too many groups");
        }
        groups.resize(2 * groups.size());
        count = static_cast<int>(groups.size());
    }
    groups.resize(static_cast<std::size_t>(count));
    return {user, entry->group, std::move(groups)};
}

FileUser::Rights::Rights(const std::optional<UserIdentity>& user) {
    if (!user) {
        return;
    }
    // With this bit root would keep its capabilities, whatever user it becomes.
    const int bits = prctl(PR_GET_SECUREBITS);
    if (bits < 0 || (static_cast<unsigned>(bits) & SECBIT_NO_SETUID_FIXUP) != 0) {
        Refuse("The host cannot give up its capabilities");
    }
    UserIdentity before = CurrentIdentity();
    if (!TakeOn(*user)) {
        if (!TakeOn(before)) {
            EndHost();
        }
        Refuse("The host may not take on the rights of other users");
    }
    before_ = std::move(before);
}

FileUser::Rights::~Rights() {
    if (before_) {
        giveBack();
    }
}

void FileUser::Rights::giveBack() {
    const int error = errno;  // of what was done
    if (!TakeOn(*before_)) {
        EndHost();
    }
    errno = error;
}

}  // namespace host
