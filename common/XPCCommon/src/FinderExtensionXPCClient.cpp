#include "xpccommon/FinderExtensionXPCClient.h"

#include <chrono>
#include <utility>

#include "common/SystemUtils.h"
#include "usercommon/Answer.h"

namespace cmn {

namespace {

// How long the caller waits, both round trips together.
constexpr std::chrono::nanoseconds kRequestDeadline{100'000'000};
constexpr std::chrono::nanoseconds kFinderExtensionDeadline{1'000'000'000};

// What the reconnect is asked with; the base ignores it.
constexpr int kFinderExtensionReconnectArgument = 1;

constexpr std::int32_t kNoAnswerStatus = 2;

}  // namespace

FinderExtensionXPCClient::FinderExtensionXPCClient(std::shared_ptr<Dispatch> dispatch,
                                                   std::shared_ptr<XPCTransport> transport,
                                                   ServiceOwners owners)
    : ServiceClient(std::move(dispatch), std::move(transport), kFinderExtensionXPCMachServiceName, owners) {}

void FinderExtensionXPCClient::willResumeConnection(const std::shared_ptr<XPCConnection>& connection) {
    connection->setRemoteObjectInterface(FinderExtensionXPCInterface());
}

void FinderExtensionXPCClient::didResumeConnection(const std::shared_ptr<XPCConnection>& connection) {
    setConnection(connection);
    validateConnection(connection, kFinderExtensionDeadline, [](const RemoteError& error) {
        SystemLog("Remote object proxy error --  " + error.recoverySuggestion);
    });
}

void FinderExtensionXPCClient::connectionDidInvalidate() {
    SystemLog("FinderExtensionXPCClient -- did invalidate");
    connectionEnded(kFinderExtensionReconnectArgument);
}

void FinderExtensionXPCClient::connectionDidInterrupt() {
    SystemLog("FinderExtensionXPCClient -- interrupt");
    connectionEnded(kFinderExtensionReconnectArgument);
}

void FinderExtensionXPCClient::afterVersion(std::function<void(const Proxy&)> action,
                                            std::chrono::nanoseconds deadline) const {
    const auto proxy = remoteObject<FinderExtensionCommunicator>(
        [](const RemoteError& error) { SystemLog("Failed to get remote object -- " + error.description); },
        deadline);
    if (proxy) {
        proxy->version([proxy, action = std::move(action)](const std::string&) { action(proxy); });
    }
}

template <typename Result, typename Send>
Result FinderExtensionXPCClient::ask(Result fallback, Send send, std::chrono::nanoseconds deadline) const {
    const auto received = std::make_shared<Answer<Result>>(*dispatch(), std::move(fallback));
    afterVersion(
        [received, send = std::move(send)](const Proxy& proxy) {
            send(*proxy, [received](Result answer) { received->set(std::move(answer)); });
        },
        deadline);
    return received->wait(kRequestDeadline);
}

std::vector<ScanRecord> FinderExtensionXPCClient::getFileFilters(const std::string& path) {
    return ask(
        std::vector<ScanRecord>(),
        [path](FinderExtensionCommunicator& service, auto reply) {
            service.getScanResult(path, std::move(reply));
        },
        kRequestDeadline);
}

std::vector<std::string> FinderExtensionXPCClient::allowedExtensions() {
    return ask(
        std::vector<std::string>(),
        [](FinderExtensionCommunicator& service, auto reply) { service.allowedExtensions(std::move(reply)); },
        kRequestDeadline);
}

std::int32_t FinderExtensionXPCClient::decrypt(const std::string& path) {
    // No question but a deed: it is sent also when the version comes after the caller has gone on.
    return ask(
        kNoAnswerStatus,
        [path](FinderExtensionCommunicator& service, auto reply) { service.decrypt(path, std::move(reply)); },
        kNoRequestDeadline);
}

std::optional<bool> FinderExtensionXPCClient::fullDiskAccess() {
    return ask(
        std::optional<bool>(),
        [](FinderExtensionCommunicator& service, auto reply) {
            service.checkFullDiskAccess(std::move(reply));
        },
        kRequestDeadline);
}

UIVisibilityStatuses FinderExtensionXPCClient::getUIVisibilityStatuses() {
    return ask(
        UIVisibilityStatuses{
            {kMenuStatusKey, false}, {kIconsStatusKey, false}, {kAgentIconDisableKey, false}},
        [](FinderExtensionCommunicator& service, auto reply) {
            service.getUIVisibilityStatuses(std::move(reply));
        },
        kRequestDeadline);
}

void FinderExtensionXPCClient::checkEncryptionStatus(const std::string& path) {
    afterVersion(
        [path, weakSelf = std::weak_ptr(self<FinderExtensionXPCClient>())](const Proxy& proxy) {
            if (const auto client = weakSelf.lock()) {
                proxy->checkEncryptionStatus(path, client);
            }
        },
        kNoRequestDeadline);
}

void FinderExtensionXPCClient::sendLogMessage(const std::string& message, const std::string& level) {
    afterVersion([message, level](const Proxy& proxy) { proxy->sendLogMessage(message, level); },
                 kNoRequestDeadline);
}

void FinderExtensionXPCClient::setCompleteblock(std::function<void(bool)> block) {
    const std::lock_guard lock(blockMutex_);
    block_.swap(block);
}

void FinderExtensionXPCClient::didCheckEncryptionStatus(bool encrypted) {
    std::function<void(bool)> block;
    {
        const std::lock_guard lock(blockMutex_);
        block = block_;
    }
    if (block) {
        block(encrypted);
    }
}

}  // namespace cmn
