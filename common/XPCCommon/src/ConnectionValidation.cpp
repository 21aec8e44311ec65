#include "ConnectionValidation.h"

#include <utility>

namespace cmn {

namespace {

constexpr std::chrono::seconds kRetryDelay{1};

void AskVersion(const std::shared_ptr<XPCConnection>& connection, const ConnectionValidation& validation,
                const std::shared_ptr<Semaphore>& answered) {
    if (const auto proxy = connection->remoteObjectProxy(validation.onError)) {
        proxy->version([weakConnection = std::weak_ptr(connection), weakConnected = validation.connected,
                        accepts = validation.accepts, answered](const std::string&) {
            const auto current = weakConnection.lock();
            const bool accepted = !current || accepts(*current);
            if (const auto connected = weakConnected.lock(); connected && accepted) {
                *connected = true;
            }
            answered->signal();
        });
    }
}

}  // namespace

void ValidateConnection(const std::shared_ptr<Dispatch>& dispatch,
                        const std::shared_ptr<XPCConnection>& connection, ConnectionValidation validation) {
    // Only the queue owns the block, and only while it runs; the retry therefore normally finds it gone.
    const auto block = std::make_shared<Dispatch::Task>();
    *block = [weakBlock = std::weak_ptr(block), dispatch, weakConnection = std::weak_ptr(connection),
              validation = std::move(validation)] {
        const auto answered = dispatch->createSemaphore(0);
        if (const auto current = weakConnection.lock()) {
            AskVersion(current, validation, answered);
        } else {
            return;
        }
        answered->wait(validation.deadline);
        if (const auto connected = validation.connected.lock(); connected && !*connected) {
            dispatch->after(kRetryDelay, QueuePriority::high, [weakBlock] {
                if (const auto retried = weakBlock.lock()) {
                    (*retried)();
                }
            });
        }
    };
    dispatch->async(QueuePriority::high, [block] { (*block)(); });
}

}  // namespace cmn
