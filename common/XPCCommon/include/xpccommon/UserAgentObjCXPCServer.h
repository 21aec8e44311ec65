#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "usercommon/Dispatch.h"
#include "usercommon/XPCServer.h"
#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

// Receives one URL report. Called on the private queue of the reporting peer.
using URLReceivedBlock =
    std::function<void(const std::string& url, const std::string& browser, std::int32_t processID)>;

// The daemon's end of "com.tessarin.UserAgent": accepts every peer, hands on URL reports and keeps the
// extractor that was registered last.
class UserAgentObjCXPCServer final : public XPCServer, public UserAgentProtocol {
 public:
    UserAgentObjCXPCServer(URLReceivedBlock block, std::shared_ptr<Dispatch> dispatch,
                           std::shared_ptr<XPCTransport> transport);

    void version(std::function<void(const std::string&)> reply) override;
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override;
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override;

    // Asks the registered extractor, waiting at most three seconds. Empty when there is none or it does not
    // answer.
    std::string getURL(const std::string& browser) const;

    bool shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

    std::shared_ptr<URLExtractor> urlExtractor() const;
    void setURLReceivedBlock(URLReceivedBlock block);

 private:
    const std::shared_ptr<Dispatch> dispatch_;

    mutable std::mutex propertyMutex_;  // guards the two properties below, never held across a call
    std::shared_ptr<URLExtractor> urlExtractor_;
    URLReceivedBlock urlReceivedBlock_;
};

}  // namespace cmn
