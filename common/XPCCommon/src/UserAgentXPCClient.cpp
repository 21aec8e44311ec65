#include "xpccommon/UserAgentXPCClient.h"

#include <utility>

#include "xpccommon/UserAgentObjCXPCClient.h"

namespace cmn {

struct UserAgentXPCClientImpl {
    std::shared_ptr<UserAgentObjCXPCClient> client;
};

UserAgentXPCClient::UserAgentXPCClient(URLExtractorDelegate urlExtractor, std::shared_ptr<Dispatch> dispatch,
                                       std::shared_ptr<XPCTransport> transport, ServiceOwners owners)
    : impl_(std::make_shared<UserAgentXPCClientImpl>()) {
    impl_->client = std::make_shared<UserAgentObjCXPCClient>(std::move(urlExtractor), std::move(dispatch),
                                                             std::move(transport), owners);
    impl_->client->connect();
}

void UserAgentXPCClient::sendURL(const std::string& url, const std::string& browser, std::int32_t processID) {
    impl_->client->sendURL(url, browser, processID);
}

bool UserAgentXPCClient::connected() const {
    return impl_->client->connected();
}

std::optional<URLReport> UserAgentXPCClient::lastReport() const {
    return impl_->client->lastReport();
}

std::shared_ptr<UserAgentXPCClient> CreateUserAgentXPCClient(URLExtractorDelegate urlExtractor,
                                                             std::shared_ptr<Dispatch> dispatch,
                                                             std::shared_ptr<XPCTransport> transport) {
    return std::make_shared<UserAgentXPCClient>(std::move(urlExtractor), std::move(dispatch),
                                                std::move(transport));
}

}  // namespace cmn
