#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "usercommon/XPCClient.h"
#include "xpccommon/ServiceOwners.h"
#include "xpccommon/URLExtractorImpl.h"
#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

// The agent's connection to the privileged service "com.tessarin.UserAgent": checks it with `version`,
// registers an extractor after every resume and reconnects for ever. A service of somebody who is not allowed
// counts as absent; where root alone is, the extractor is registered once the service has answered.
class UserAgentObjCXPCClient final : public XPCClient {
 public:
    // Does not connect.
    UserAgentObjCXPCClient(URLExtractorDelegate delegate, std::shared_ptr<Dispatch> dispatch,
                           std::shared_ptr<XPCTransport> transport,
                           ServiceOwners owners = ServiceOwners::anybody);

    // Queues the report and returns at once; a report that cannot be delivered is only logged.
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID);

    // True between an answered `version` of a service that is allowed and the next invalidation or
    // interruption.
    bool connected() const { return connected_; }

    void willResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void didResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

 private:
    void validateConnection(const std::shared_ptr<XPCConnection>& connection);
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor);
    bool acceptService(const XPCConnection& connection);
    std::shared_ptr<UserAgentProtocol> remoteUserAgent(RemoteErrorHandler onError) const;
    std::shared_ptr<UserAgentObjCXPCClient> self();

    const URLExtractorDelegate delegate_;
    ServiceOwnerCheck ownerCheck_;
    std::atomic<bool> connected_{false};
};

}  // namespace cmn
