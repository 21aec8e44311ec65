#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "xpccommon/ServiceClient.h"
#include "xpccommon/URLExtractorImpl.h"
#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

// A report that was handed to the connection.
struct URLReport {
    std::string url;
    std::string browser;
    std::chrono::steady_clock::time_point when;
};

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
    // The last one that could be handed over; nothing when none could. Any thread.
    std::optional<URLReport> lastReport() const;

    void willResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void didResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

 private:
    void didValidateConnection() override;
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor);

    const URLExtractorDelegate delegate_;
    mutable std::mutex reportMutex_;  // guards what follows, never held across a call
    std::optional<URLReport> lastReport_;
};

}  // namespace cmn
