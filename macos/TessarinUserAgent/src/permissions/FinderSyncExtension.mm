#import "permissions/FinderSyncExtension.h"

#import <FinderSync/FinderSync.h>

namespace useragent {

bool FinderSyncExtension::isExtensionEnabled() {
    return [FIFinderSyncController isExtensionEnabled] != NO;
}

void FinderSyncExtension::showExtensionManagementInterface() {
    [FIFinderSyncController showExtensionManagementInterface];
}

}  // namespace useragent
