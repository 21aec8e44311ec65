#include "bundle/MachineNames.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "common/SystemUtils.h"

namespace ctl {

namespace {

constexpr const char* kAccounts = "/etc/passwd";
constexpr uid_t kFirstPerson = 1000;
constexpr uid_t kNobody = 65534;

bool IsPerson(uid_t user) {
    return user != 0 && user != kNobody && (user >= kFirstPerson || user == ::getuid());
}

}  // namespace

// The file, not the system's user database: that may ask the network, and take its time.
std::vector<std::pair<cmn::SecretKind, std::string>> NamesOnThisMachine() {
    using cmn::SecretKind;
    std::vector<std::pair<SecretKind, std::string>> names;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> accounts(std::fopen(kAccounts, "re"), &std::fclose);
    for (const passwd* account = nullptr; accounts && (account = ::fgetpwent(accounts.get())) != nullptr;) {
        if (IsPerson(account->pw_uid)) {
            const std::string_view comment = account->pw_gecos != nullptr ? account->pw_gecos : "";
            names.emplace_back(SecretKind::user, account->pw_name);
            names.emplace_back(SecretKind::user, comment.substr(0, comment.find(',')));
        }
    }
    for (const char* const variable : {"LOGNAME", "USER"}) {
        const char* const name = std::getenv(variable);
        if (name != nullptr && std::string_view(name) != "root") {
            names.emplace_back(SecretKind::user, name);
        }
    }
    const std::string host = cmn::GetHostName();
    names.emplace_back(SecretKind::host, host);
    names.emplace_back(SecretKind::host, host.substr(0, host.find('.')));
    return names;
}

}  // namespace ctl
