#include "bundle/MachineNames.h"

#include <pwd.h>
#include <unistd.h>

#include <string_view>

#include "common/SystemUtils.h"

namespace ctl {

namespace {

constexpr uid_t kFirstPerson = 1000;
constexpr uid_t kNobody = 65534;

// More names than this come from a directory, and would take a while.
constexpr int kMostAccounts = 2000;

}  // namespace

std::vector<std::pair<cmn::SecretKind, std::string>> NamesOnThisMachine() {
    using cmn::SecretKind;
    std::vector<std::pair<SecretKind, std::string>> names;
    const auto add = [&](const passwd& account) {
        const std::string_view comment = account.pw_gecos != nullptr ? account.pw_gecos : "";
        names.emplace_back(SecretKind::user, account.pw_name);
        names.emplace_back(SecretKind::user, comment.substr(0, comment.find(',')));
    };
    if (const passwd* const own = ::getpwuid(::getuid()); own != nullptr && own->pw_uid != 0) {
        add(*own);
    }
    ::setpwent();
    int left = kMostAccounts;
    for (const passwd* account = ::getpwent(); account != nullptr && left > 0;
         account = ::getpwent(), --left) {
        if (account->pw_uid >= kFirstPerson && account->pw_uid != kNobody) {
            add(*account);
        }
    }
    ::endpwent();
    const std::string host = cmn::GetHostName();
    names.emplace_back(SecretKind::host, host);
    names.emplace_back(SecretKind::host, host.substr(0, host.find('.')));
    return names;
}

}  // namespace ctl
