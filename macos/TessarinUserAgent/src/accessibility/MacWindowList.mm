#import "accessibility/MacWindowList.h"

#import <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

#import "common_mac/FoundationBridges.h"

namespace useragent {

namespace {

WindowInfo ToWindowInfo(NSDictionary* window) {
    WindowInfo info;
    id const name = window[(__bridge NSString*)kCGWindowOwnerName];
    if ([name isKindOfClass:[NSString class]]) {
        info.ownerName = [name stdString];
    }
    id const pid = window[(__bridge NSString*)kCGWindowOwnerPID];
    if ([pid isKindOfClass:[NSNumber class]]) {
        info.ownerPid = [pid intValue];
    }
    return info;
}

}  // namespace

std::optional<std::vector<WindowInfo>> MacWindowList::copyOnScreenWindows() {
    @autoreleasepool {
        NSArray* const windows = (__bridge_transfer NSArray*)CGWindowListCopyWindowInfo(
            kCGWindowListOptionOnScreenOnly, kCGNullWindowID);
        if (windows == nil) {
            return std::nullopt;
        }
        std::vector<WindowInfo> infos;
        infos.reserve(windows.count);
        for (NSDictionary* window in windows) {
            infos.push_back(ToWindowInfo(window));
        }
        return infos;
    }
}

}  // namespace useragent
