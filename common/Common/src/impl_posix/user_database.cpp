#include "impl_posix/user_database.h"

#include <pwd.h>

#include <cerrno>
#include <vector>

namespace cmn {

namespace {

constexpr std::size_t kMaxEntry = 1 << 20;

// Asks through one of the reentrant functions.
template <class Ask>
std::optional<UserEntry> Find(Ask&& ask) {
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    int error = 0;
    while ((error = ask(&entry, buffer.data(), buffer.size(), &found)) == ERANGE && buffer.size() < kMaxEntry)
        buffer.resize(buffer.size() * 2);
    if (error != 0 || found == nullptr)
        return std::nullopt;
    return UserEntry{found->pw_uid, found->pw_gid, found->pw_name, found->pw_dir};
}

}  // namespace

std::optional<UserEntry> FindUser(const std::string& name) {
    return Find([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
        return getpwnam_r(name.c_str(), entry, buffer, size, found);
    });
}

std::optional<UserEntry> FindUser(UserId id) {
    return Find([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
        return getpwuid_r(id, entry, buffer, size, found);
    });
}

std::optional<UserId> GetUIDByName(const std::string& name) {
    const auto user = FindUser(name);
    return user ? std::optional(user->id) : std::nullopt;
}

}  // namespace cmn
