#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/SystemUtils.h"
#include "usercommon/Dispatch.h"
#include "usercommon/XPCServer.h"
#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

// Receives one URL report and who sent it, nothing when that is not known. Called on the private queue of the
// reporting peer.
using URLReceivedBlock = std::function<void(const std::string& url, const std::string& browser,
                                            std::int32_t processID, const std::optional<XPCPeer>& peer)>;

// The daemon's end of "com.tessarin.UserAgent": accepts every peer, hands on URL reports and keeps the
// extractors of the agents that are there, each user's apart. Peers that are not known count as one user.
class UserAgentObjCXPCServer final : public XPCServer, public UserAgentProtocol {
 public:
    UserAgentObjCXPCServer(URLReceivedBlock block, std::shared_ptr<Dispatch> dispatch,
                           std::shared_ptr<XPCTransport> transport);

    void version(std::function<void(const std::string&)> reply) override;
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override;
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override;

    // Asks `urlExtractor`, waiting at most three seconds. Empty when there is none or it does not answer.
    std::string getURL(const std::string& browser) const;

    bool shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

    // The one to ask: of those that the active session's user registered the last, else the last of all; null
    // when there is none.
    std::shared_ptr<URLExtractor> urlExtractor() const;
    void setURLReceivedBlock(URLReceivedBlock block);

    // What is asked instead of the system whose session is active, on the thread of whoever asks for a URL.
    // To be set before the service starts.
    void setActiveUser(std::function<std::optional<UserId>()> activeUser) {
        activeUser_ = std::move(activeUser);
    }

 private:
    struct RegisteredExtractor {
        std::optional<XPCPeer> peer;
        std::shared_ptr<URLExtractor> extractor;
    };

    // In the place of what the peer registered before; null leaves none.
    void replaceExtractor(const std::optional<XPCPeer>& peer, std::shared_ptr<URLExtractor> extractor);

    const std::shared_ptr<Dispatch> dispatch_;
    std::function<std::optional<UserId>()> activeUser_;

    mutable std::mutex propertyMutex_;  // guards the two properties below, never held across a call
    std::vector<RegisteredExtractor> extractors_;  // at most one of each connection, the last one last
    URLReceivedBlock urlReceivedBlock_;
};

}  // namespace cmn
