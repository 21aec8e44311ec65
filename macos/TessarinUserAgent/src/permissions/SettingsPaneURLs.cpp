#include "permissions/SettingsPaneURLs.h"

namespace useragent {

const char* FullDiskAccessPaneURL(bool isMacOS13OrLater) {
    return isMacOS13OrLater
               ? "x-apple.systempreferences:com.apple.settings.PrivacySecurity.extension?Privacy_AllFiles"
               : "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
}

const char* AccessibilityPaneURL() {
    return "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";
}

}  // namespace useragent
