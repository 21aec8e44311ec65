#import <Foundation/Foundation.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>

#import "MacAgentPlatform.h"
#include "SessionLock.h"
#include "common/SystemUtils.h"
#include "common/log.h"
#include "useragent/Agent.h"

namespace {

// In a folder that the system keeps for this user, and does not tidy up.
std::filesystem::path SessionLockFile() {
    std::array<char, PATH_MAX> folder{};
    const std::size_t length = confstr(_CS_DARWIN_USER_DIR, folder.data(), folder.size());
    return std::filesystem::path(length > 0 ? folder.data() : "") / "com.tessarin.UserAgent.lock";
}

}  // namespace

int main(int argc, const char* argv[]) {
    InstallLogCrashHandlers();
    @autoreleasepool {
        const useragent::SessionLock lock(SessionLockFile());
        if (!lock.isHeld()) {
            // Both would write the same log.
            cmn::SystemLog("TessarinUserAgent runs already in this session; this one ends");
            return 0;
        }
        useragent::MacAgentPlatform platform(argc, argv);
        return useragent::RunAgent(platform);
    }
}
