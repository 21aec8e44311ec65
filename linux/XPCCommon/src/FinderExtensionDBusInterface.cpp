#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ServiceStubs.h"
#include "common/log.h"
#include "xpccommon/FinderExtensionProtocol.h"

// How the Finder extension service travels over D-Bus. Names and signatures are a contract with other
// programs.
namespace cmn {

namespace {

constexpr const char* kCheckEncryptionStatus = "CheckEncryptionStatus";
constexpr const char* kDecrypt = "Decrypt";
constexpr const char* kGetScanResult = "GetScanResult";
constexpr const char* kAllowedExtensions = "AllowedExtensions";
constexpr const char* kCheckFullDiskAccess = "CheckFullDiskAccess";
constexpr const char* kGetUIVisibilityStatuses = "GetUIVisibilityStatuses";
constexpr const char* kSendLogMessage = "SendLogMessage";
constexpr const char* kDidCheckEncryptionStatus = "DidCheckEncryptionStatus";

const DBusDescription& FinderExtensionDescription() {
    static const DBusDescription description = std::make_shared<DBusInterfaceDescription>(
        DBusInterfaceDescription{"com.tessarin.FinderExtension",
                                 {{kVersionMethod, "", "s"},
                                  {kCheckEncryptionStatus, "so", "", {"path", "delegate"}, true},
                                  {kDecrypt, "s", "i", {"path"}},
                                  {kGetScanResult, "s", "aa{ss}", {"path"}},
                                  {kAllowedExtensions, "", "as"},
                                  {kCheckFullDiskAccess, "", "b"},
                                  {kGetUIVisibilityStatuses, "", "a{sb}"},
                                  {kSendLogMessage, "ss", "", {"message", "level"}, true}}});
    return description;
}

const DBusDescription& DelegateDescription() {
    static const DBusDescription description = std::make_shared<DBusInterfaceDescription>(
        DBusInterfaceDescription{"com.tessarin.FinderExtensionDelegate",
                                 {{kDidCheckEncryptionStatus, "b", "", {"encrypted"}, true}}});
    return description;
}

// The client's delegate, as the service holds it. Told without asking for an answer: what peers do not answer
// would count against what the bus lets the service wait for.
class DelegateProxy final : public FinderExtensionDelegate {
 public:
    explicit DelegateProxy(DBusRemoteObject remote) : remote_(std::move(remote)) {}

    void didCheckEncryptionStatus(bool encrypted) override {
        remote_.call(kDidCheckEncryptionStatus, {encrypted}, nullptr);
    }

 private:
    const DBusRemoteObject remote_;
};

void LogDelegateError(const RemoteError& error) {
    TLOG_WARN("DidCheckEncryptionStatus -- failed: {}", error.description);
}

// Holds the delegate weakly: it usually is the client that owns the connection.
DBusObjectHandler CreateDelegateHandler(const std::shared_ptr<FinderExtensionDelegate>& delegate) {
    return [weakDelegate = std::weak_ptr(delegate)](const std::shared_ptr<DBusChannel>&, const std::string&,
                                                    const DBusArguments& arguments, const DBusReply&) {
        if (const auto alive = weakDelegate.lock()) {
            alive->didCheckEncryptionStatus(std::get<bool>(arguments[0]));
        }
    };
}

// The service, as its clients hold it.
class FinderExtensionProxy final : public FinderExtensionCommunicator {
 public:
    explicit FinderExtensionProxy(DBusRemoteObject remote) : remote_(std::move(remote)) {}

    void version(std::function<void(const std::string&)> reply) override {
        remote_.ask<std::string>(kVersionMethod, {}, std::move(reply));
    }
    void checkEncryptionStatus(const std::string& path,
                               std::shared_ptr<FinderExtensionDelegate> delegate) override {
        const DBusObjectPath delegatePath =
            remote_.channel()->exportObject(delegate, DelegateDescription(), CreateDelegateHandler(delegate));
        remote_.call(kCheckEncryptionStatus, {path, delegatePath}, nullptr);
    }
    void decrypt(const std::string& path, std::function<void(std::int32_t)> reply) override {
        remote_.ask<std::int32_t>(kDecrypt, {path}, std::move(reply));
    }
    void getScanResult(const std::string& path, std::function<void(std::vector<ScanRecord>)> reply) override {
        remote_.ask<std::vector<ScanRecord>>(kGetScanResult, {path}, std::move(reply));
    }
    void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) override {
        remote_.ask<std::vector<std::string>>(kAllowedExtensions, {}, std::move(reply));
    }
    void checkFullDiskAccess(std::function<void(bool)> reply) override {
        remote_.ask<bool>(kCheckFullDiskAccess, {}, std::move(reply));
    }
    void getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) override {
        remote_.ask<UIVisibilityStatuses>(kGetUIVisibilityStatuses, {}, std::move(reply));
    }
    void sendLogMessage(const std::string& message, const std::string& level) override {
        remote_.call(kSendLogMessage, {message, level}, nullptr);
    }

 private:
    const DBusRemoteObject remote_;
};

void DeliverToFinderExtension(FinderExtensionCommunicator& service, const std::shared_ptr<DBusChannel>& peer,
                              const std::string& method, const DBusArguments& arguments,
                              const DBusReply& reply) {
    const auto text = [&](std::size_t index) -> const std::string& {
        return std::get<std::string>(arguments[index]);
    };
    if (method == kVersionMethod) {
        service.version(SendValue<std::string>(reply));
    } else if (method == kCheckEncryptionStatus) {
        service.checkEncryptionStatus(
            text(0),
            CreatePassedObject<DelegateProxy>(peer, arguments[1], DelegateDescription(), &LogDelegateError));
    } else if (method == kDecrypt) {
        service.decrypt(text(0), SendValue<std::int32_t>(reply));
    } else if (method == kGetScanResult) {
        service.getScanResult(text(0), SendValue<std::vector<ScanRecord>>(reply));
    } else if (method == kAllowedExtensions) {
        service.allowedExtensions(SendValue<std::vector<std::string>>(reply));
    } else if (method == kCheckFullDiskAccess) {
        service.checkFullDiskAccess(SendValue<bool>(reply));
    } else if (method == kGetUIVisibilityStatuses) {
        service.getUIVisibilityStatuses(SendValue<UIVisibilityStatuses>(reply));
    } else if (method == kSendLogMessage) {
        service.sendLogMessage(text(0), text(1));
    }
}

}  // namespace

std::shared_ptr<const XPCInterface> FinderExtensionXPCInterface() {
    return std::make_shared<DBusServiceInterface<FinderExtensionCommunicator, FinderExtensionProxy>>(
        "/com/tessarin/FinderExtension", FinderExtensionDescription(), &DeliverToFinderExtension);
}

}  // namespace cmn
