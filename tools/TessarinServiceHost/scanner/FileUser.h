#pragma once

#include <sys/types.h>

#include <optional>
#include <utility>
#include <vector>

#include "usercommon/XPCPeer.h"

namespace host {

// What a user is to the file system. `groups` are empty where the system knows them by the user.
struct UserIdentity {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;
};

// As the user database says. Throws std::runtime_error when it does not know the user.
UserIdentity LookUpUser(uid_t user);

// Whose rights decide what is done with a file: the host's own or those of another user, which only root can
// take on. The texts of all errors, std::runtime_error, are the reason alone.
class FileUser {
 public:
    FileUser() = default;  // the host itself
    explicit FileUser(UserIdentity other) : other_(std::move(other)) {}

    // Throws when nobody vouches for the asker or the host cannot act for him.
    static FileUser Of(const std::optional<cmn::XPCPeer>& asker);

    bool isOther() const { return other_.has_value(); }

    // Does something with files as this user. Throws when his rights cannot be taken on. The calling thread
    // alone has them, and threads that it makes: so nothing but calls of the system belongs here.
    template <typename Action>
    auto act(const Action& action) const {
        const Rights rights(other_);
        return action();
    }

 private:
    class Rights {
     public:
        explicit Rights(const std::optional<UserIdentity>& user);
        ~Rights();
        Rights(const Rights&) = delete;
        Rights& operator=(const Rights&) = delete;

     private:
        // Ends the process when they do not come back.
        void giveBack();

        std::optional<UserIdentity> before_;  // nothing: they stay the host's
    };

    std::optional<UserIdentity> other_;
};

}  // namespace host
