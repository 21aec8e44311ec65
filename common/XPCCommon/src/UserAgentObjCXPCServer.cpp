#include "xpccommon/UserAgentObjCXPCServer.h"

#include <utility>

#include "common/ScopedAction.h"
#include "common/log.h"

namespace cmn {

namespace {

constexpr const char* kUserAgentVersion = "1.0";

// What the extractor answered. A late answer still writes here; nobody reads it then.
struct ReceivedURL {
    std::mutex mutex;
    std::string url;
};

}  // namespace

UserAgentObjCXPCServer::UserAgentObjCXPCServer(URLReceivedBlock block, std::shared_ptr<Dispatch> dispatch,
                                               std::shared_ptr<XPCTransport> transport)
    : XPCServer(std::move(transport), kUserAgentMachServiceName),
      dispatch_(std::move(dispatch)),
      urlReceivedBlock_(std::move(block)) {}

bool UserAgentObjCXPCServer::shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection) {
    TLOG_INFO("Accepting new connection");
    connection->setInvalidationHandler([weakSelf = weak_from_this()] {
        TLOG_WARN("Did invalidate");
        if (const auto self = weakSelf.lock()) {
            self->connectionDidInvalidate();
        }
    });
    connection->setInterruptionHandler([weakSelf = weak_from_this()] {
        TLOG_WARN("Did interrupt");
        if (const auto self = weakSelf.lock()) {
            self->connectionDidInterrupt();
        }
    });
    connection->setExportedInterface(CreateUserAgentInterface());
    connection->setExportedObject(std::shared_ptr<UserAgentProtocol>(shared_from_this(), this));
    connection->resume();
    TLOG_INFO("New connection accepted");
    return true;
}

void UserAgentObjCXPCServer::version(std::function<void(const std::string&)> reply) {
    reply(kUserAgentVersion);
}

void UserAgentObjCXPCServer::setURLExtractor(std::shared_ptr<URLExtractor> extractor,
                                             std::function<void(bool)> reply) {
    TLOG_INFO("URLExtractor has been set");
    {
        const std::lock_guard lock(propertyMutex_);
        urlExtractor_.swap(extractor);
    }
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
        block(url, browser, processID);
    }
}

std::string UserAgentObjCXPCServer::getURL(const std::string& browser) const {
    const auto received = std::make_shared<ReceivedURL>();
    if (const auto extractor = urlExtractor()) {
        const auto answered = dispatch_->createSemaphore(0);
        // Goes with the reply function: a call that failed, or whose peer left, is not waited for.
        auto ended =
            std::make_shared<ScopedAction<std::function<void()>>>([answered] { answered->signal(); });
        extractor->getURL(browser, [received, answered, ended = std::move(ended)](const std::string& url) {
            {
                const std::lock_guard lock(received->mutex);
                received->url = url;
            }
            answered->signal();
        });
        answered->wait(kGetURLDeadline);
    }
    const std::lock_guard lock(received->mutex);
    return received->url;
}

void UserAgentObjCXPCServer::connectionDidInvalidate() {
    TLOG_WARN("Connection has been invalidated");
}

void UserAgentObjCXPCServer::connectionDidInterrupt() {
    TLOG_WARN("Connection has been interrupted");
}

std::shared_ptr<URLExtractor> UserAgentObjCXPCServer::urlExtractor() const {
    const std::lock_guard lock(propertyMutex_);
    return urlExtractor_;
}

void UserAgentObjCXPCServer::setURLReceivedBlock(URLReceivedBlock block) {
    const std::lock_guard lock(propertyMutex_);
    urlReceivedBlock_.swap(block);
}

}  // namespace cmn
