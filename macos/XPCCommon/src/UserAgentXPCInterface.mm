#import <Foundation/Foundation.h>

#import "ServiceInterface.h"
#import "UserAgentExportedObject.h"
#import "UserAgentProxy.h"
#import "macos_xpccommon/UserAgentProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

namespace {

NSXPCInterface* CreateInterface() {
    NSSet* const classes = [NSSet setWithObjects:[NSURL class], [NSString class], [NSArray class],
                                                 [NSSet class], [NSData class], [NSNumber class], nil];

    NSXPCInterface* const extractor = [NSXPCInterface interfaceWithProtocol:@protocol(URLExtractor)];
    // On the question, deliberately not on its reply.
    [extractor setClasses:classes forSelector:@selector(getURL:reply:) argumentIndex:0 ofReply:NO];

    NSXPCInterface* const interface = [NSXPCInterface interfaceWithProtocol:@protocol(UserAgentProtocol)];
    [interface setInterface:extractor
                forSelector:@selector(setURLExtractor:reply:)
              argumentIndex:0
                    ofReply:NO];
    [interface setClasses:classes
              forSelector:@selector(sendURL:browser:processID:)
            argumentIndex:0
                  ofReply:NO];
    return interface;
}

}  // namespace

std::shared_ptr<const XPCInterface> CreateUserAgentInterface() {
    return std::make_shared<ServiceInterface<UserAgentProtocol, UserAgentProxy, UserAgentExportedObject>>(
        &CreateInterface);
}

}  // namespace cmn
