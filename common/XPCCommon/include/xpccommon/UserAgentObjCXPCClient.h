#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
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

    // Queues the report and returns at once; one that cannot be delivered is logged. A service that comes
    // later knows nothing: once it has answered, it is told the last address of each browser that the
    // delegate still gives for it.
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID);
    // The last one that could be handed over; nothing when none could. Any thread.
    std::optional<URLReport> lastReport() const;

    void willResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void didResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

 private:
    // The last address of a browser.
    struct Shown {
        std::string url;
        std::int32_t processID = 0;
        std::optional<unsigned> toldOver;  // the connection it was handed to
    };

    void didValidateConnection() override;
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor);
    // With the order's mutex held.
    void report(const std::string& browser, Shown& shown);
    void reportAgain();
    std::string addressNow(const std::string& browser) const;

    const URLExtractorDelegate delegate_;
    std::atomic<unsigned> connections_{0};  // counts the connections
    // Guards `shown_` and the order of reports; held while one is queued, never while the delegate is asked,
    // which may wait for somebody who reports.
    std::mutex orderMutex_;
    std::map<std::string, Shown> shown_;  // by browser
    mutable std::mutex reportMutex_;      // guards what follows, never held across a call
    std::optional<URLReport> lastReport_;
};

}  // namespace cmn
