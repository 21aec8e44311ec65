#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "xpccommon/ServiceClient.h"
#include "xpccommon/URLExtractorImpl.h"
#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

// The agent's connection to the privileged service "com.tessarin.UserAgent": registers an extractor after
// every resume, where root's service alone is allowed once that has answered, and reconnects for ever.
class UserAgentObjCXPCClient final : public ServiceClient {
 public:
    // Does not connect.
    UserAgentObjCXPCClient(URLExtractorDelegate delegate, std::shared_ptr<Dispatch> dispatch,
                           std::shared_ptr<XPCTransport> transport,
                           ServiceOwners owners = ServiceOwners::anybody);

    // Queues the report and returns at once; a report that cannot be delivered is only logged.
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID);

    void willResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void didResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

 private:
    void didValidateConnection() override;
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor);

    const URLExtractorDelegate delegate_;
};

}  // namespace cmn
