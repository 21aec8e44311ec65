#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "usercommon/XPCConnection.h"
#include "xpccommon/IFinderExtensionOperations.h"

namespace cmn {

inline constexpr const char* kFinderExtensionXPCMachServiceName = "com.tessarin.FinderExtension";

// Which elements of its interface the file manager's extension shows. Exactly three keys.
using UIVisibilityStatuses = std::map<std::string, bool>;
inline constexpr const char* kMenuStatusKey = "menuStatus";
inline constexpr const char* kIconsStatusKey = "iconsStatus";
inline constexpr const char* kAgentIconDisableKey = "agentIconDisable";

// Gets the answer to `checkEncryptionStatus`. Travels as a callable remote object; whoever sends it keeps it
// alive.
class FinderExtensionDelegate {
 public:
    virtual ~FinderExtensionDelegate() = default;

    virtual void didCheckEncryptionStatus(bool encrypted) = 0;
};

// Messages of the service "com.tessarin.FinderExtension". Paths are UTF-8. A reply function may be empty:
// then nobody waits for the answer.
class FinderExtensionCommunicator : public XPCVersioning {
 public:
    // Answered through the delegate; null means that nobody wants to know.
    virtual void checkEncryptionStatus(const std::string& path,
                                       std::shared_ptr<FinderExtensionDelegate> delegate) = 0;
    virtual void decrypt(const std::string& path, std::function<void(std::int32_t status)> reply) = 0;
    virtual void getScanResult(const std::string& path,
                               std::function<void(std::vector<ScanRecord>)> reply) = 0;
    virtual void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) = 0;
    virtual void checkFullDiskAccess(std::function<void(bool granted)> reply) = 0;
    virtual void getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) = 0;
    // No reply: returns as soon as the message is queued. `level` is a level's name ("Warn").
    virtual void sendLogMessage(const std::string& message, const std::string& level) = 0;
};

// The interface description used on both ends. Provided by each platform end.
std::shared_ptr<const XPCInterface> FinderExtensionXPCInterface();

}  // namespace cmn
