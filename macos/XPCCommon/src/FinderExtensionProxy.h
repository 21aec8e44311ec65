#pragma once

#import "macos_xpccommon/FinderExtensionCommunicator.h"
#include "xpccommon/FinderExtensionProtocol.h"

// The portable classes have the same names.
using RemoteFinderExtension = id<FinderExtensionCommunicator>;
using RemoteFinderExtensionDelegate = NSObject<FinderExtensionDelegate>*;

namespace cmn {

// The Finder extension service, as its clients hold it.
class FinderExtensionProxy final : public FinderExtensionCommunicator {
 public:
    explicit FinderExtensionProxy(RemoteFinderExtension remote) : remote_(remote) {}

    void version(std::function<void(const std::string&)> reply) override;
    void checkEncryptionStatus(const std::string& path,
                               std::shared_ptr<FinderExtensionDelegate> delegate) override;
    void decrypt(const std::string& path, std::function<void(std::int32_t)> reply) override;
    void getScanResult(const std::string& path, std::function<void(std::vector<ScanRecord>)> reply) override;
    void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) override;
    void checkFullDiskAccess(std::function<void(bool)> reply) override;
    void getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) override;
    void sendLogMessage(const std::string& message, const std::string& level) override;

 private:
    const RemoteFinderExtension remote_;
};

// A client's delegate, as the service holds it.
class FinderExtensionDelegateProxy final : public FinderExtensionDelegate {
 public:
    explicit FinderExtensionDelegateProxy(RemoteFinderExtensionDelegate remote) : remote_(remote) {}

    void didCheckEncryptionStatus(bool encrypted) override;

 private:
    const RemoteFinderExtensionDelegate remote_;
};

}  // namespace cmn
