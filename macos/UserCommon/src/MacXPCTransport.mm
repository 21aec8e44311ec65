#import "macos_usercommon/MacXPCTransport.h"

#import "MacXPCConnection.h"
#import "MacXPCListener.h"
#import "common_mac/FoundationBridges.h"
#import "common_mac/standard_errors.h"

namespace cmn {

static_assert(static_cast<unsigned>(XPCConnectionOptions::privileged) == NSXPCConnectionPrivileged);

std::shared_ptr<XPCConnection> MacXPCTransport::createConnection(const std::string& machServiceName,
                                                                 XPCConnectionOptions options) {
    return WithStandardErrors("NSXPCConnection", [&] {
        return std::make_shared<MacXPCConnection>([[NSXPCConnection alloc]
            initWithMachServiceName:ToNSString(machServiceName)
                            options:static_cast<NSXPCConnectionOptions>(options)]);
    });
}

std::shared_ptr<XPCListener> MacXPCTransport::createListener(const std::string& machServiceName) {
    return WithStandardErrors("NSXPCListener", [&] {
        return std::make_shared<MacXPCListener>(
            [[NSXPCListener alloc] initWithMachServiceName:ToNSString(machServiceName)]);
    });
}

}  // namespace cmn
