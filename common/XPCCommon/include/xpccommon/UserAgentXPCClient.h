#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "xpccommon/ServiceClient.h"
#include "xpccommon/URLExtractorImpl.h"

namespace cmn {

struct UserAgentXPCClientImpl;
struct URLReport;

// The agent's end of the user agent service. Connects on construction and keeps reconnecting. Thread-safe.
class UserAgentXPCClient {
 public:
    UserAgentXPCClient(URLExtractorDelegate urlExtractor, std::shared_ptr<Dispatch> dispatch,
                       std::shared_ptr<XPCTransport> transport,
                       ServiceOwners owners = ServiceOwners::anybody);

    // Reports a browser's URL to the daemon. Never blocks and never fails: a report that cannot be delivered
    // is logged.
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID);

    // Those of the client behind it.
    bool connected() const;
    std::optional<URLReport> lastReport() const;

 private:
    std::shared_ptr<UserAgentXPCClientImpl> impl_;
};

std::shared_ptr<UserAgentXPCClient> CreateUserAgentXPCClient(URLExtractorDelegate urlExtractor,
                                                             std::shared_ptr<Dispatch> dispatch,
                                                             std::shared_ptr<XPCTransport> transport);

}  // namespace cmn
