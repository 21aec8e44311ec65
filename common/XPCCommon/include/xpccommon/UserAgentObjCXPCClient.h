#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "usercommon/XPCClient.h"
#include "xpccommon/URLExtractorImpl.h"

namespace cmn {

// The agent's connection to the privileged service "com.tessarin.UserAgent": checks it with `version`,
// registers an extractor after every resume and reconnects for ever.
class UserAgentObjCXPCClient final : public XPCClient {
 public:
    // Does not connect.
    UserAgentObjCXPCClient(URLExtractorDelegate delegate, std::shared_ptr<Dispatch> dispatch,
                           std::shared_ptr<XPCTransport> transport);

    // Queues the report and returns at once; a report that cannot be delivered is only logged.
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID);

    // True between an answered `version` and the next invalidation or interruption.
    bool connected() const { return connected_; }

    void willResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void didResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

 private:
    void validateConnection(const std::shared_ptr<XPCConnection>& connection);
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor);
    std::shared_ptr<UserAgentObjCXPCClient> self();

    const URLExtractorDelegate delegate_;
    std::atomic<bool> connected_{false};
};

}  // namespace cmn
