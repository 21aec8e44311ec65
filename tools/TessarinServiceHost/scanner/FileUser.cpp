#include "FileUser.h"

#include <unistd.h>

#include <stdexcept>
#include <string>

#include "common/exceptions.h"

namespace host {

namespace {

[[noreturn]] void RefuseAsker(const std::string& reason) {
    throw_with_trace(std::runtime_error(reason));
}

}  // namespace

FileUser FileUser::Of(const std::optional<cmn::XPCPeer>& asker) {
    if (!asker) {
        RefuseAsker("It is not known who asks");
    }
    if (asker->userID == geteuid()) {
        return {};
    }
    if (geteuid() != 0) {
        RefuseAsker("The host serves only the user that it runs as");
    }
    return FileUser(LookUpUser(asker->userID));
}

}  // namespace host
