#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "xpccommon/FinderExtensionProtocol.h"
#include "xpccommon/ServiceClient.h"

namespace cmn {

// The agent's connection to "com.tessarin.FinderExtension". The requests with a result may be made on any
// thread, the main one included: each blocks its caller for at most 100 ms and then returns the neutral
// answer; a question is then given up. A service that is absent or slow cannot be told from a negative
// answer. Reconnects for ever, also after `stop`.
class FinderExtensionXPCClient final : public ServiceClient, public FinderExtensionDelegate {
 public:
    // Does not connect.
    FinderExtensionXPCClient(std::shared_ptr<Dispatch> dispatch, std::shared_ptr<XPCTransport> transport,
                             ServiceOwners owners = ServiceOwners::anybody);

    // Neutral answer: no records.
    std::vector<ScanRecord> getFileFilters(const std::string& path);
    // Neutral answer: none.
    std::vector<std::string> allowedExtensions();
    // Neutral answer: 2. The decryption may still happen after that.
    std::int32_t decrypt(const std::string& path);
    // Neutral answer: false.
    bool checkFullDiskAccess() { return fullDiskAccess().value_or(false); }
    // The question of `checkFullDiskAccess`. Neutral answer: nothing.
    std::optional<bool> fullDiskAccess();
    // Neutral answer: all three false.
    UIVisibilityStatuses getUIVisibilityStatuses();

    // Returns at once; the answer goes to the complete block, if any comes.
    void checkEncryptionStatus(const std::string& path);
    // Returns at once; a message that cannot be delivered is lost.
    void sendLogMessage(const std::string& message, const std::string& level);

    // Called on the connection's private queue with the answer of every check, also of those made before it
    // was set. To be set before the check.
    void setCompleteblock(std::function<void(bool encrypted)> block);
    void didCheckEncryptionStatus(bool encrypted) override;

    void willResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void didResumeConnection(const std::shared_ptr<XPCConnection>& connection) override;
    void connectionDidInvalidate() override;
    void connectionDidInterrupt() override;

 private:
    using Proxy = std::shared_ptr<FinderExtensionCommunicator>;

    // Asks for the version first and calls `action` with the proxy in its reply. After the deadline neither
    // happens any more.
    void afterVersion(std::function<void(const Proxy&)> action, std::chrono::nanoseconds deadline) const;
    // `send` makes the real request; `fallback` is what is returned when its answer does not come in time.
    template <typename Result, typename Send>
    Result ask(Result fallback, Send send, std::chrono::nanoseconds deadline) const;

    std::mutex blockMutex_;  // guards block_, never held across a call
    std::function<void(bool)> block_;
};

}  // namespace cmn
