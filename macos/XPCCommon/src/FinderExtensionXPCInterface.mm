#import <Foundation/Foundation.h>

#import "FinderExtensionExportedObject.h"
#import "FinderExtensionProxy.h"
#import "ServiceInterface.h"
#import "macos_xpccommon/FinderExtensionCommunicator.h"
#include "xpccommon/FinderExtensionProtocol.h"

namespace cmn {

namespace {

NSXPCInterface* CreateInterface() {
    NSXPCInterface* const interface =
        [NSXPCInterface interfaceWithProtocol:@protocol(FinderExtensionCommunicator)];
    NSSet* const classes =
        [NSSet setWithObjects:[NSString class], [NSArray class], [NSNumber class], [NSDictionary class], nil];
    // Always on the first argument of the call, also where that is the reply block. Full disk access has
    // none.
    for (const SEL selector : {
             @selector(checkEncryptionStatus:delegate:), @selector(decrypt:withCompletion:),
                 @selector(getScanResult:withCompletion:), @selector(allowedExtensionsWithCompletion:),
                 @selector(getUIVisibilityStatusesWithCompletion:), @selector(sendLogMessage:level:)
         }) {
        [interface setClasses:classes forSelector:selector argumentIndex:0 ofReply:NO];
    }
    [interface setInterface:[NSXPCInterface interfaceWithProtocol:@protocol(FinderExtensionDelegate)]
                forSelector:@selector(checkEncryptionStatus:delegate:)
              argumentIndex:1
                    ofReply:NO];
    return interface;
}

}  // namespace

std::shared_ptr<const XPCInterface> FinderExtensionXPCInterface() {
    return std::make_shared<
        ServiceInterface<FinderExtensionCommunicator, FinderExtensionProxy, FinderExtensionExportedObject>>(
        &CreateInterface);
}

}  // namespace cmn
