#include "xpccommon/UserAgentXPCServer.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "common/log.h"
#include "common/utf8.h"

namespace cmn {

namespace {
// Firefox is not in the list on purpose: the daemon does not ask for it.
constexpr std::array<const char*, 2> kAskedBrowsers{"Google Chrome", "Safari"};
}  // namespace

struct UserAgentXPCServerImpl {
    std::shared_ptr<UserAgentObjCXPCServer> server;
    URLReceivedBlock urlReceived;
};

UserAgentXPCServer::UserAgentXPCServer(URLReceivedBlock urlReceived, std::shared_ptr<Dispatch> dispatch,
                                       std::shared_ptr<XPCTransport> transport)
    : impl_(std::make_shared<UserAgentXPCServerImpl>()) {
    impl_->urlReceived = std::move(urlReceived);
    impl_->server = std::make_shared<UserAgentObjCXPCServer>(
        [weakImpl = std::weak_ptr(impl_)](const std::string& url, const std::string& browser,
                                          std::int32_t processID, const std::optional<XPCPeer>& peer) {
            if (const auto impl = weakImpl.lock(); impl && impl->urlReceived) {
                impl->urlReceived(url, browser, processID, peer);
            }
        },
        std::move(dispatch), std::move(transport));
    impl_->server->start();
    TLOG_TRACE("UserAgentObjCXPCServer started");
}

UserAgentXPCServer::~UserAgentXPCServer() {
    stop();
}

void UserAgentXPCServer::stop() {
    impl_->server->stop();
}

std::string UserAgentXPCServer::getURL(const std::string& browser) const {
    try {
        const auto* const asked =
            std::find_if(kAskedBrowsers.begin(), kAskedBrowsers.end(),
                         [&](const char* name) { return browser.find(name) != std::string::npos; });
        if (asked == kAskedBrowsers.end()) {
            TLOG_TRACE("getUrl called for browser: '{}' -- failed.", EscapeControls(browser));
            return {};
        }
        TLOG_TRACE("call getUrl for browser: '{}'", EscapeControls(browser));
        return impl_->server->getURL(*asked);
    } catch (const std::exception& e) {
        TLOG_DEBUG("getUrl for browser:Exception '{}' -- failed.", e.what());
        return {};
    }
}

std::unique_ptr<UserAgentXPCServer> CreateUserAgentXPCServer(URLReceivedBlock urlReceived,
                                                             std::shared_ptr<Dispatch> dispatch,
                                                             std::shared_ptr<XPCTransport> transport) {
    return std::make_unique<UserAgentXPCServer>(std::move(urlReceived), std::move(dispatch),
                                                std::move(transport));
}

}  // namespace cmn
