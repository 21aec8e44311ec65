#include "xpccommon/UserAgentObjCXPCClient.h"

#include <chrono>
#include <functional>
#include <utility>

#include "ConnectionValidation.h"
#include "common/log.h"
#include "common/utf8.h"

namespace cmn {

namespace {

constexpr std::chrono::seconds kUserAgentDeadline{5};

// One nanosecond in the past, on purpose: such a wait looks at the semaphore and returns at once. Neither the
// main queue nor the watcher, which reports URLs with its mutex held, may ever wait for the daemon.
constexpr std::chrono::nanoseconds kPastDeadline{-1};

// What the reconnect is asked with; the base ignores it.
constexpr int kUserAgentReconnectArgument = 5;

}  // namespace

UserAgentObjCXPCClient::UserAgentObjCXPCClient(URLExtractorDelegate delegate,
                                               std::shared_ptr<Dispatch> dispatch,
                                               std::shared_ptr<XPCTransport> transport, ServiceOwners owners)
    : XPCClient(std::move(dispatch), std::move(transport), kUserAgentMachServiceName, true),
      delegate_(std::move(delegate)),
      ownerCheck_(kUserAgentMachServiceName, owners) {}

void UserAgentObjCXPCClient::willResumeConnection(const std::shared_ptr<XPCConnection>& connection) {
    connection->setRemoteObjectInterface(CreateUserAgentInterface());
}

void UserAgentObjCXPCClient::didResumeConnection(const std::shared_ptr<XPCConnection>& connection) {
    setConnection(connection);
    validateConnection(connection);
    if (ownerCheck_.allowed() == ServiceOwners::anybody) {
        setURLExtractor(std::make_shared<URLExtractorImpl>(delegate_));
    }
}

bool UserAgentObjCXPCClient::acceptService(const XPCConnection& connection) {
    const bool accepted = ownerCheck_.review(connection);
    if (accepted && ownerCheck_.allowed() == ServiceOwners::root) {
        setURLExtractor(std::make_shared<URLExtractorImpl>(delegate_));
    }
    return accepted;
}

std::shared_ptr<UserAgentProtocol> UserAgentObjCXPCClient::remoteUserAgent(RemoteErrorHandler onError) const {
    const auto current = connection();
    return current && ownerCheck_.allows(*current)
               ? std::dynamic_pointer_cast<UserAgentProtocol>(current->remoteObjectProxy(std::move(onError)))
               : nullptr;
}

void UserAgentObjCXPCClient::validateConnection(const std::shared_ptr<XPCConnection>& connection) {
    ValidateConnection(dispatch(), connection,
                       {kUserAgentDeadline, std::shared_ptr<std::atomic<bool>>(self(), &connected_),
                        [](const RemoteError& error) {
                            TLOG_WARN("Remote object proxy error --  {}",
                                      EscapeControls(error.recoverySuggestion));
                        },
                        [weakSelf = std::weak_ptr(self())](const XPCConnection& answered) {
                            const auto client = weakSelf.lock();
                            return client && client->acceptService(answered);
                        }});
}

void UserAgentObjCXPCClient::setURLExtractor(std::shared_ptr<URLExtractor> extractor) {
    dispatch()->asyncMain([weakSelf = std::weak_ptr(self()), extractor = std::move(extractor)] {
        const auto client = weakSelf.lock();
        if (!client) {
            return;
        }
        const auto proxy = client->remoteUserAgent([](const RemoteError& error) {
            TLOG_ERROR("Failed to get remote object -- {}", EscapeControls(error.recoverySuggestion));
        });
        const auto answered = client->dispatch()->createSemaphore(0);
        if (proxy) {
            proxy->setURLExtractor(extractor, [answered](bool) { answered->signal(); });
        }
        answered->wait(kPastDeadline);
    });
}

void UserAgentObjCXPCClient::sendURL(const std::string& url, const std::string& browser,
                                     std::int32_t processID) {
    const auto onError = [](const RemoteError&) {
        // The placeholder is written as it stands: the formatter knows braces only.
        TLOG_ERROR("Failed to get remote object -- %s");
    };
    if (const auto proxy = remoteUserAgent(onError)) {
        proxy->sendURL(url, browser, processID);
    } else {
        onError({});
    }
    dispatch()->createSemaphore(0)->wait(kPastDeadline);
}

void UserAgentObjCXPCClient::connectionDidInvalidate() {
    connected_ = false;
    TLOG_WARN("Did invalidate -- reconnecting");
    reconnect(kUserAgentReconnectArgument);
}

void UserAgentObjCXPCClient::connectionDidInterrupt() {
    connected_ = false;
    TLOG_WARN("Did interrupt -- reconnecting");
    reconnect(kUserAgentReconnectArgument);
}

std::shared_ptr<UserAgentObjCXPCClient> UserAgentObjCXPCClient::self() {
    return std::static_pointer_cast<UserAgentObjCXPCClient>(shared_from_this());
}

}  // namespace cmn
