#include "xpccommon/ServiceClient.h"

#include <cstdint>
#include <functional>
#include <string>

#include "common/log.h"

namespace cmn {

namespace {

constexpr std::uint32_t kRoot = 0;
constexpr std::chrono::seconds kRetryDelay{1};

// False when the connection is gone.
bool AskVersion(const std::shared_ptr<XPCConnection>& connection, const RemoteErrorHandler& onError,
                std::function<void(const std::string&)> reply) {
    const auto proxy = connection ? connection->remoteObjectProxy(onError) : nullptr;
    if (proxy) {
        proxy->version(std::move(reply));
    }
    return connection != nullptr;
}

}  // namespace

ServiceOwners OwnersOf(const proto::TSettings& settings) {
    return settings.RequireRootServices ? ServiceOwners::root : ServiceOwners::anybody;
}

ServiceClient::ServiceClient(std::shared_ptr<Dispatch> dispatch, std::shared_ptr<XPCTransport> transport,
                             const char* machServiceName, ServiceOwners owners)
    : XPCClient(std::move(dispatch), std::move(transport), machServiceName, true), owners_(owners) {}

void ServiceClient::validateConnection(const std::shared_ptr<XPCConnection>& connection,
                                       std::chrono::nanoseconds deadline, RemoteErrorHandler onError) {
    // Only the queue owns the block, and only while it runs; the retry therefore normally finds it gone.
    const auto block = std::make_shared<Dispatch::Task>();
    *block = [weakBlock = std::weak_ptr(block), weakSelf = std::weak_ptr(self<ServiceClient>()),
              queues = dispatch(), weakConnection = std::weak_ptr(connection), deadline,
              onError = std::move(onError)] {
        const auto replied = queues->createSemaphore(0);
        const auto reply = [weakSelf, weakConnection, replied](const std::string&) {
            if (const auto client = weakSelf.lock()) {
                client->answered(weakConnection.lock().get());
            }
            replied->signal();
        };
        if (!AskVersion(weakConnection.lock(), onError, reply)) {
            return;
        }
        replied->wait(deadline);
        if (const auto client = weakSelf.lock(); client && !client->connected_) {
            queues->after(kRetryDelay, QueuePriority::high, [weakBlock] {
                if (const auto retried = weakBlock.lock()) {
                    (*retried)();
                }
            });
        }
    };
    dispatch()->async(QueuePriority::high, [block] { (*block)(); });
}

void ServiceClient::answered(const XPCConnection* connection) {
    if (connection != nullptr) {
        reviewOwner(*connection);
        if (!isAllowed(*connection)) {
            return;
        }
        didValidateConnection();
    }
    connected_ = true;
}

bool ServiceClient::isAllowed(const XPCConnection& connection) const {
    if (owners_ == ServiceOwners::anybody) {
        return true;
    }
    const auto owner = connection.peer();
    return owner && owner->userID == kRoot;
}

void ServiceClient::reviewOwner(const XPCConnection& connection) {
    const auto owner = connection.peer();
    if (!owner || owner->userID == kRoot || ownerTold_.exchange(true)) {
        return;
    }
    if (owners_ == ServiceOwners::root) {
        TLOG_WARN(
            "The service {} is run by the user with the id {} and not by root, so it is not used, as "
            "RequireRootServices in the settings demands. An administrator should see who runs it",
            machServiceName(), owner->userID);
    } else {
        TLOG_WARN(
            "The service {} is run by the user with the id {} and not by root: that user gets browsers' "
            "addresses and files' paths. An administrator should see who runs it, and can forbid such "
            "services with RequireRootServices in the settings",
            machServiceName(), owner->userID);
    }
}

void ServiceClient::connectionEnded(int attempts) {
    connected_ = false;
    reconnect(attempts);
}

}  // namespace cmn
