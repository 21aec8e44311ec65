#include "xpccommon/UserAgentObjCXPCClient.h"

#include <chrono>
#include <exception>
#include <functional>
#include <utility>
#include <vector>

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
    : ServiceClient(std::move(dispatch), std::move(transport), kUserAgentMachServiceName, owners),
      delegate_(std::move(delegate)) {}

void UserAgentObjCXPCClient::willResumeConnection(const std::shared_ptr<XPCConnection>& connection) {
    connection->setRemoteObjectInterface(CreateUserAgentInterface());
}

void UserAgentObjCXPCClient::didResumeConnection(const std::shared_ptr<XPCConnection>& connection) {
    setConnection(connection);
    ++connections_;  // not before: until then reports go to the one that has ended
    validateConnection(connection, kUserAgentDeadline, [](const RemoteError& error) {
        TLOG_WARN("Remote object proxy error --  {}", EscapeControls(error.recoverySuggestion));
    });
    if (allowedOwners() == ServiceOwners::anybody) {
        setURLExtractor(std::make_shared<URLExtractorImpl>(delegate_));
    }
}

void UserAgentObjCXPCClient::didValidateConnection() {
    if (allowedOwners() == ServiceOwners::root) {
        setURLExtractor(std::make_shared<URLExtractorImpl>(delegate_));
    }
    reportAgain();
}

void UserAgentObjCXPCClient::setURLExtractor(std::shared_ptr<URLExtractor> extractor) {
    dispatch()->asyncMain(
        [weakSelf = std::weak_ptr(self<UserAgentObjCXPCClient>()), extractor = std::move(extractor)] {
            const auto client = weakSelf.lock();
            if (!client) {
                return;
            }
            const auto proxy = client->remoteObject<UserAgentProtocol>([](const RemoteError& error) {
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
    {
        const std::lock_guard lock(orderMutex_);
        Shown& shown = shown_[browser];
        shown = {url, processID, std::nullopt};
        report(browser, shown);
    }
    dispatch()->createSemaphore(0)->wait(kPastDeadline);
}

void UserAgentObjCXPCClient::report(const std::string& browser, Shown& shown) {
    const unsigned present = connections_;
    const auto onError = [](const RemoteError&) {
        // The placeholder is written as it stands: the formatter knows braces only.
        TLOG_ERROR("Failed to get remote object -- %s");
    };
    if (const auto proxy = remoteObject<UserAgentProtocol>(onError)) {
        proxy->sendURL(shown.url, browser, shown.processID);
        shown.toldOver = present;
        const std::lock_guard lock(reportMutex_);
        lastReport_ = URLReport{shown.url, browser, std::chrono::steady_clock::now()};
    } else {
        onError({});
    }
}

void UserAgentObjCXPCClient::reportAgain() {
    std::vector<std::string> browsers;
    {
        const std::lock_guard lock(orderMutex_);
        for (const auto& [browser, shown] : shown_) {
            if (shown.toldOver != connections_.load()) {
                browsers.push_back(browser);
            }
        }
    }
    for (const std::string& browser : browsers) {
        const std::string now = addressNow(browser);
        const std::lock_guard lock(orderMutex_);
        Shown& shown = shown_[browser];
        // Another address has been reported meanwhile, or none is shown any more.
        if (!now.empty() && shown.url == now && shown.toldOver != connections_.load()) {
            report(browser, shown);
        }
    }
}

std::string UserAgentObjCXPCClient::addressNow(const std::string& browser) const {
    try {
        return delegate_ ? delegate_(browser) : std::string();
    } catch (const std::exception& e) {
        TLOG_WARN("The address of {} is not known -- {}", browser, EscapeControls(e.what()));
        return {};
    }
}

std::optional<URLReport> UserAgentObjCXPCClient::lastReport() const {
    const std::lock_guard lock(reportMutex_);
    return lastReport_;
}

void UserAgentObjCXPCClient::connectionDidInvalidate() {
    TLOG_WARN("Did invalidate -- reconnecting");
    connectionEnded(kUserAgentReconnectArgument);
}

void UserAgentObjCXPCClient::connectionDidInterrupt() {
    TLOG_WARN("Did interrupt -- reconnecting");
    connectionEnded(kUserAgentReconnectArgument);
}

}  // namespace cmn
