#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "usercommon/AuthorizationUtils.h"

namespace cmn {

struct PolkitOptions {
    // Bus address list; empty: the system bus.
    std::string busAddress = {};
    // How long the bus itself may take for each answer, and the authority for withdrawing a question.
    std::chrono::milliseconds busDeadline{5000};
    // How long the authority may take when it must not ask the user. It may have to be started first.
    std::chrono::milliseconds silentDeadline{10'000};
    // The same when it may ask: a password has to be found and typed.
    std::chrono::milliseconds interactiveDeadline{std::chrono::minutes{5}};
};

// Grants rights through polkit: a right is the action of the same name, see `packaging/polkit`. The subject
// is this process. Every question has a bus connection of its own, and needs no event loop. Thread-safe.
//
// Whether rights may be extended makes no difference here. The prompt is shown whole; callers that polkit
// does not trust cannot choose it, then the user reads the message of the action.
class PolkitAuthority final : public AuthorizationAuthority {
 public:
    explicit PolkitAuthority(PolkitOptions options = {});

    // Waits for the deadlines in the options at most.
    std::shared_ptr<Authorization> obtain(const AuthorizationRequest& request) override;

 private:
    const PolkitOptions options_;
};

}  // namespace cmn
