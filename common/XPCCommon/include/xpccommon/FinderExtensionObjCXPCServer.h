#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "common/LogFile.h"
#include "usercommon/XPCServer.h"
#include "xpccommon/FinderExtensionProtocol.h"

namespace cmn {

// The service that the file manager's extension and the agent ask about files: accepts every peer, passes
// questions about files on to a scanner, answers those about settings itself. Without a scanner every
// question gets its neutral answer. Thread-safe.
class FinderExtensionObjCXPCServer final : public XPCServer, public FinderExtensionCommunicator {
 public:
    // Reads the settings and starts the service's own log beside the product's files. Where that cannot be
    // written, the log is in the working directory and its first line says so. Does not listen. Throws
    // std::runtime_error when there are no settings or they do not list the running program.
    explicit FinderExtensionObjCXPCServer(std::shared_ptr<XPCTransport> transport);
    ~FinderExtensionObjCXPCServer() override;
    FinderExtensionObjCXPCServer(const FinderExtensionObjCXPCServer&) = delete;
    FinderExtensionObjCXPCServer& operator=(const FinderExtensionObjCXPCServer&) = delete;

    // The process's one instance, made with the transport of the first call; throws as the constructor does.
    static std::shared_ptr<FinderExtensionObjCXPCServer> sharedInstance(
        const std::shared_ptr<XPCTransport>& transport);

    // Each request holds the scanner for as long as it takes, the service itself never does.
    void setScannerService(std::weak_ptr<IFinderExtensionOperations> scannerService);

    // What is asked instead of the system whether there is full disk access, at each call on the caller's
    // thread. To be set before the service starts.
    void setFullDiskAccessProbe(std::function<bool()> probe) { fullDiskAccessProbe_ = std::move(probe); }

    void version(std::function<void(const std::string&)> reply) override;
    void checkEncryptionStatus(const std::string& path,
                               std::shared_ptr<FinderExtensionDelegate> delegate) override;
    void decrypt(const std::string& path, std::function<void(std::int32_t)> reply) override;
    void getScanResult(const std::string& path, std::function<void(std::vector<ScanRecord>)> reply) override;
    void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) override;
    void checkFullDiskAccess(std::function<void(bool)> reply) override;
    void getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) override;
    void sendLogMessage(const std::string& message, const std::string& level) override;

    // The base's hooks for a connection's end stay as they are: each leaves "Not overridden" in the process's
    // log.
    bool shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection) override;

 private:
    std::shared_ptr<IFinderExtensionOperations> scanner() const;

    std::function<bool()> fullDiskAccessProbe_;
    LogFile logger_;  // the service's own log, apart from the process's

    mutable std::mutex propertyMutex_;  // guards scannerService_, never held across a call
    std::weak_ptr<IFinderExtensionOperations> scannerService_;
};

}  // namespace cmn
