#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/log.h"
#include "common/utf8.h"
#include "linux_usercommon/ServiceTable.h"
#include "xpccommon/FinderExtensionProtocol.h"

// How the Finder extension service travels over the bus. Names and signatures are a contract with other
// programs.
namespace cmn {

namespace {

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMostPathBytes = 64 * kKiB;
constexpr std::size_t kMostLogBytes = 64 * kKiB;

}  // namespace

template <>
const ServiceTable<FinderExtensionCommunicator>& TableOf<FinderExtensionCommunicator>() {
    using Service = FinderExtensionCommunicator;
    static const ServiceTable<Service> table(
        "com.tessarin.FinderExtension",
        {Row<&Service::version, Service>("Version"),
         Row<&Service::checkEncryptionStatus>(
             "CheckEncryptionStatus",
             {.inNames = {"path", "delegate"}, .slow = true, .mostBytes = kMostPathBytes + kKiB}),
         Row<&Service::decrypt>("Decrypt", {.inNames = {"path"}, .slow = true, .mostBytes = kMostPathBytes}),
         Row<&Service::getScanResult>("GetScanResult", {.inNames = {"path"},
                                                        .slow = true,
                                                        .mostBytes = kMostPathBytes,
                                                        .mostAnswerBytes = bus::kLargestMessage}),
         Row<&Service::allowedExtensions>("AllowedExtensions"),
         Row<&Service::checkFullDiskAccess>("CheckFullDiskAccess"),
         Row<&Service::getUIVisibilityStatuses>("GetUIVisibilityStatuses"),
         Row<&Service::sendLogMessage>("SendLogMessage",
                                       {.inNames = {"message", "level"}, .mostBytes = kMostLogBytes})});
    return table;
}

template <>
const ServiceTable<FinderExtensionDelegate>& TableOf<FinderExtensionDelegate>() {
    static const ServiceTable<FinderExtensionDelegate> table(
        "com.tessarin.FinderExtensionDelegate", {Row<&FinderExtensionDelegate::didCheckEncryptionStatus>(
                                                    "DidCheckEncryptionStatus", {.inNames = {"encrypted"}})});
    return table;
}

namespace {

// The client's delegate, as the service holds it. Told without asking for an answer: what peers do not answer
// would count against what the bus lets the service wait for.
class DelegateProxy final : public FinderExtensionDelegate {
 public:
    explicit DelegateProxy(RemoteObject<FinderExtensionDelegate> remote) : remote_(std::move(remote)) {}

    void didCheckEncryptionStatus(bool encrypted) override {
        remote_.tell<&FinderExtensionDelegate::didCheckEncryptionStatus>(encrypted);
    }

 private:
    const RemoteObject<FinderExtensionDelegate> remote_;
};

// The service, as its clients hold it.
class FinderExtensionProxy final : public FinderExtensionCommunicator {
 public:
    using Service = FinderExtensionCommunicator;

    explicit FinderExtensionProxy(RemoteObject<Service> remote) : remote_(std::move(remote)) {}

    void version(std::function<void(const std::string&)> reply) override {
        remote_.ask<&Service::version>(std::move(reply));
    }
    void checkEncryptionStatus(const std::string& path,
                               std::shared_ptr<FinderExtensionDelegate> delegate) override {
        remote_.tell<&Service::checkEncryptionStatus>(path, delegate);
    }
    void decrypt(const std::string& path, std::function<void(std::int32_t)> reply) override {
        remote_.ask<&Service::decrypt>(std::move(reply), path);
    }
    void getScanResult(const std::string& path, std::function<void(std::vector<ScanRecord>)> reply) override {
        remote_.ask<&Service::getScanResult>(std::move(reply), path);
    }
    void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) override {
        remote_.ask<&Service::allowedExtensions>(std::move(reply));
    }
    void checkFullDiskAccess(std::function<void(bool)> reply) override {
        remote_.ask<&Service::checkFullDiskAccess>(std::move(reply));
    }
    void getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) override {
        remote_.ask<&Service::getUIVisibilityStatuses>(std::move(reply));
    }
    void sendLogMessage(const std::string& message, const std::string& level) override {
        remote_.tell<&Service::sendLogMessage>(message, level);
    }

 private:
    const RemoteObject<Service> remote_;
};

}  // namespace

template <>
struct PassedObject<FinderExtensionDelegate> {
    // Holds the delegate weakly: it usually is the client that owns the connection.
    static ServiceHandler Handler(const std::shared_ptr<FinderExtensionDelegate>& delegate) {
        return TableOf<FinderExtensionDelegate>().weakHandler(delegate);
    }
    static std::shared_ptr<FinderExtensionDelegate> Proxy(RemoteObject<FinderExtensionDelegate> remote) {
        return std::make_shared<DelegateProxy>(std::move(remote));
    }
    static void LogError(const RemoteError& error) {
        TLOG_WARN("DidCheckEncryptionStatus -- failed: {}", EscapeControls(error.description));
    }
};

std::shared_ptr<const XPCInterface> FinderExtensionXPCInterface() {
    return std::make_shared<TableInterface<FinderExtensionCommunicator, FinderExtensionProxy>>(
        "/com/tessarin/FinderExtension");
}

}  // namespace cmn
