#import "permissions/MacSettingsPanes.h"

#import <AppKit/AppKit.h>

#include "common/log.h"
#import "common_mac/FoundationBridges.h"
#include "permissions/SettingsPaneURLs.h"

namespace useragent {

namespace {

void Open(const char* pane) {
    NSURL* const url = [NSURL URLWithStdString:pane];
    if (url == nil || ![[NSWorkspace sharedWorkspace] openURL:url]) {
        TLOG_WARN("The settings cannot be opened: {}", pane);
    }
}

}  // namespace

void MacSettingsPanes::openFullDiskAccess() {
    const NSOperatingSystemVersion macOS13 = {13, 0, 0};
    Open(FullDiskAccessPaneURL([[NSProcessInfo processInfo] isOperatingSystemAtLeastVersion:macOS13]));
}

void MacSettingsPanes::openAccessibility() {
    Open(AccessibilityPaneURL());
}

}  // namespace useragent
