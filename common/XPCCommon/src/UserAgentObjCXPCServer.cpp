#include "xpccommon/UserAgentObjCXPCServer.h"

#include <algorithm>
#include <utility>

#include "common/log.h"
#include "usercommon/Answer.h"

namespace cmn {

namespace {

constexpr const char* kUserAgentVersion = "1.0";

std::optional<UserId> UserAtTheConsole() {
    return GetUIDByName(GetCurrentUserName());
}

}  // namespace

UserAgentObjCXPCServer::UserAgentObjCXPCServer(URLReceivedBlock block, std::shared_ptr<Dispatch> dispatch,
                                               std::shared_ptr<XPCTransport> transport)
    : XPCServer(std::move(transport), kUserAgentMachServiceName),
      dispatch_(std::move(dispatch)),
      activeUser_(UserAtTheConsole),
      urlReceivedBlock_(std::move(block)) {}

bool UserAgentObjCXPCServer::shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection) {
    TLOG_INFO("Accepting new connection");
    accept(
        connection, CreateUserAgentInterface(), self<UserAgentObjCXPCServer>(),
        [weakSelf = std::weak_ptr(self<UserAgentObjCXPCServer>()), peer = connection->peer()] {
            TLOG_WARN("Did invalidate");
            // Nobody can tell whether it was an unknown peer's; a question to one that left ends at once.
            if (const auto server = weakSelf.lock(); server && peer) {
                server->replaceExtractor(peer, nullptr);
            }
        },
        [] { TLOG_WARN("Did interrupt"); });
    TLOG_INFO("New connection accepted");
    return true;
}

void UserAgentObjCXPCServer::version(std::function<void(const std::string&)> reply) {
    reply(kUserAgentVersion);
}

void UserAgentObjCXPCServer::setURLExtractor(std::shared_ptr<URLExtractor> extractor,
                                             std::function<void(bool)> reply) {
    TLOG_INFO("URLExtractor has been set");
    replaceExtractor(CurrentXPCPeer(), std::move(extractor));
    reply(true);
}

void UserAgentObjCXPCServer::sendURL(const std::string& url, const std::string& browser,
                                     std::int32_t processID) {
    URLReceivedBlock block;
    {
        const std::lock_guard lock(propertyMutex_);
        block = urlReceivedBlock_;
    }
    if (block) {
        block(url, browser, processID, CurrentXPCPeer());
    }
}

std::string UserAgentObjCXPCServer::getURL(const std::string& browser) const {
    const auto extractor = urlExtractor();
    if (!extractor) {
        return {};
    }
    const auto answer = std::make_shared<Answer<std::string>>(*dispatch_, std::string());
    // Goes with the reply function: a call that failed, or whose peer left, is not waited for.
    std::shared_ptr<void> ended(nullptr, [answer](void*) { answer->end(); });
    extractor->getURL(browser,
                      [answer, ended = std::move(ended)](const std::string& url) { answer->set(url); });
    return answer->wait(kGetURLDeadline);
}

void UserAgentObjCXPCServer::connectionDidInvalidate() {
    TLOG_WARN("Connection has been invalidated");
}

void UserAgentObjCXPCServer::connectionDidInterrupt() {
    TLOG_WARN("Connection has been interrupted");
}

void UserAgentObjCXPCServer::replaceExtractor(const std::optional<XPCPeer>& peer,
                                              std::shared_ptr<URLExtractor> extractor) {
    RegisteredExtractor replaced;  // goes without the lock
    const std::lock_guard lock(propertyMutex_);
    const auto found =
        std::ranges::find_if(extractors_, [&](const auto& registered) { return registered.peer == peer; });
    if (found != extractors_.end()) {
        replaced = std::move(*found);
        extractors_.erase(found);
    }
    if (extractor) {
        extractors_.push_back({peer, std::move(extractor)});
    }
}

std::shared_ptr<URLExtractor> UserAgentObjCXPCServer::urlExtractor() const {
    std::vector<RegisteredExtractor> registered;
    {
        const std::lock_guard lock(propertyMutex_);
        registered = extractors_;
    }
    if (registered.empty()) {
        return nullptr;
    }
    if (registered.size() > 1) {
        const auto user = activeUser_();
        const auto found = std::find_if(registered.rbegin(), registered.rend(), [&](const auto& one) {
            return one.peer && user == one.peer->userID;
        });
        if (found != registered.rend()) {
            return found->extractor;
        }
    }
    return registered.back().extractor;
}

void UserAgentObjCXPCServer::setURLReceivedBlock(URLReceivedBlock block) {
    const std::lock_guard lock(propertyMutex_);
    urlReceivedBlock_.swap(block);
}

}  // namespace cmn
