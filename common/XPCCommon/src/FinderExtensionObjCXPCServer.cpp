#include "xpccommon/FinderExtensionObjCXPCServer.h"

#include <fmt/format.h>

#include <filesystem>
#include <utility>

#include "common/SystemUtils.h"
#include "common/log_place.h"
#include "common/proto_settings.h"
#include "common/utf8.h"

namespace cmn {

namespace {

constexpr const char* kFinderExtensionVersion = "1.0";

// With a lower-case "f", unlike the service's name.
constexpr const char* kLogFileName = "com.tessarin.finderExtension";

constexpr std::int32_t kNoScannerStatus = 2;

template <typename Reply, typename Answer>
void Send(const Reply& reply, Answer&& answer) {
    if (reply) {
        reply(std::forward<Answer>(answer));
    }
}

void Send(const std::shared_ptr<FinderExtensionDelegate>& delegate, bool encrypted) {
    if (delegate) {
        delegate->didCheckEncryptionStatus(encrypted);
    }
}

}  // namespace

FinderExtensionObjCXPCServer::FinderExtensionObjCXPCServer(std::shared_ptr<XPCTransport> transport)
    : XPCServer(std::move(transport), kFinderExtensionXPCMachServiceName),
      fullDiskAccessProbe_(IsFullDiskAccessGranted) {
    const LogLevel level = LogLevelFromString(proto::GetSettings().LogLevel);
    const std::filesystem::path folder = proto::GetProduct("").InstallPath;
    const std::filesystem::path wanted = folder / kLogFileName;
    const auto stem = WritableLogStem(wanted, {GetSystemLogFolder(), GetUserLogFolder()});
    logger_.setLogLevel(level);
    const std::string wantedFile = logger_.getLogPath(wanted.string());
    if (stem) {
        logger_.setLogPath(stem->string());
    } else {
        logger_.setLogFileExtension(kNoLogFile);
    }
    if (stem != wanted) {
        logger_.log(stem ? LogLevel::Info : LogLevel::Warn,
                    fmt::format("This log cannot be written to {}, so it goes to {}", wantedFile,
                                stem ? logger_.getLogPath() : "the standard error stream"));
    }
    logger_.log(LogLevel::Info, "Finder entension server init");
}

FinderExtensionObjCXPCServer::~FinderExtensionObjCXPCServer() {
    logger_.log(LogLevel::Info, "FinderExtensionObjCXPCServer deallocated");
}

std::shared_ptr<FinderExtensionObjCXPCServer> FinderExtensionObjCXPCServer::sharedInstance(
    const std::shared_ptr<XPCTransport>& transport) {
    static const auto instance = std::make_shared<FinderExtensionObjCXPCServer>(transport);
    return instance;
}

void FinderExtensionObjCXPCServer::setScannerService(
    std::weak_ptr<IFinderExtensionOperations> scannerService) {
    const std::lock_guard lock(propertyMutex_);
    scannerService_.swap(scannerService);
}

std::shared_ptr<IFinderExtensionOperations> FinderExtensionObjCXPCServer::scanner() const {
    const std::lock_guard lock(propertyMutex_);
    return scannerService_.lock();
}

bool FinderExtensionObjCXPCServer::shouldAcceptNewConnection(
    const std::shared_ptr<XPCConnection>& connection) {
    const auto logging = [weakSelf = std::weak_ptr(self<FinderExtensionObjCXPCServer>())](const char* text) {
        return [weakSelf, text] {
            if (const auto server = weakSelf.lock()) {
                server->logger_.log(LogLevel::Debug, text);
            }
        };
    };
    accept(connection, FinderExtensionXPCInterface(), self<FinderExtensionObjCXPCServer>(),
           logging("FinderExtensionObjCXPCServer -- did invalidate"),
           logging("FinderExtensionObjCXPCServer -- did interrupt"));
    logger_.log(LogLevel::Info, "Accepted new XPC connection");
    return true;
}

void FinderExtensionObjCXPCServer::version(std::function<void(const std::string&)> reply) {
    Send(reply, std::string(kFinderExtensionVersion));
}

void FinderExtensionObjCXPCServer::sendLogMessage(const std::string& message, const std::string& level) {
    logger_.log(LogLevelFromString(level), EscapeControls(message));
}

void FinderExtensionObjCXPCServer::checkEncryptionStatus(const std::string& path,
                                                         std::shared_ptr<FinderExtensionDelegate> delegate) {
    if (path.empty()) {
        logger_.log(LogLevel::Warn, "checkEncryptionStatus called with empty path");
        Send(delegate, false);
        return;
    }
    bool encrypted = false;
    if (const auto operations = scanner()) {
        encrypted = operations->CheckEncryptionStatus(path, CurrentXPCPeer());
        logger_.log(LogLevel::Debug, fmt::format("Encryption status for path: {} is {}", EscapeControls(path),
                                                 encrypted ? "encrypted" : "not encrypted"));
    }
    Send(delegate, encrypted);
}

void FinderExtensionObjCXPCServer::getScanResult(const std::string& path,
                                                 std::function<void(std::vector<ScanRecord>)> reply) {
    logger_.log(LogLevel::Info, fmt::format("getScanResult called for path: {}", EscapeControls(path)));
    const auto operations = scanner();
    if (!operations) {
        Send(reply, std::vector<ScanRecord>());
        return;
    }
    std::vector<ScanRecord> records = operations->GetScanResult(path, CurrentXPCPeer());
    logger_.log(LogLevel::Info, "Scan result loaded successfully");
    Send(reply, std::move(records));
}

void FinderExtensionObjCXPCServer::allowedExtensions(
    std::function<void(const std::vector<std::string>&)> reply) {
    const auto operations = scanner();
    Send(reply, operations ? operations->GetAllowedExtensions() : std::vector<std::string>());
}

void FinderExtensionObjCXPCServer::getUIVisibilityStatuses(
    std::function<void(const UIVisibilityStatuses&)> reply) {
    // One by one: each is as fresh as it can be.
    const bool menu = proto::GetSettings().IsExtensionMenuAvailable;
    const bool icons = proto::GetSettings().IsExtensionIconsAvailable;
    const bool agentIconDisable = proto::GetSettings().AgentIconDisable;
    Send(reply,
         UIVisibilityStatuses{
             {kMenuStatusKey, menu}, {kIconsStatusKey, icons}, {kAgentIconDisableKey, agentIconDisable}});
}

void FinderExtensionObjCXPCServer::checkFullDiskAccess(std::function<void(bool)> reply) {
    Send(reply, fullDiskAccessProbe_());
}

void FinderExtensionObjCXPCServer::decrypt(const std::string& path, std::function<void(std::int32_t)> reply) {
    const auto operations = scanner();
    if (!operations) {
        Send(reply, kNoScannerStatus);
        return;
    }
    const std::int32_t status = operations->Decrypt(path, CurrentXPCPeer());
    logger_.log(LogLevel::Info, fmt::format("Decryption attempted for path: {}", EscapeControls(path)));
    Send(reply, status);
}

}  // namespace cmn
