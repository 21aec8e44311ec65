#import "macos_usercommon/MacXPCTransport.h"

#import "MacXPCConnection.h"
#import "MacXPCListener.h"
#import "common_mac/FoundationBridges.h"

namespace cmn {

static_assert(static_cast<unsigned>(XPCConnectionOptions::privileged) == NSXPCConnectionPrivileged);

std::shared_ptr<XPCConnection> MacXPCTransport::createConnection(const std::string& machServiceName,
                                                                 XPCConnectionOptions options) {
    return std::make_shared<MacXPCConnection>([[NSXPCConnection alloc]
        initWithMachServiceName:[NSString stringWithStdString:machServiceName]
                        options:static_cast<NSXPCConnectionOptions>(options)]);
}

std::shared_ptr<XPCListener> MacXPCTransport::createListener(const std::string& machServiceName) {
    return std::make_shared<MacXPCListener>(machServiceName);
}

}  // namespace cmn
