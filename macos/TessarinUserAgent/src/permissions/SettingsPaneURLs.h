#pragma once

// Links to the panes of System Settings.
namespace useragent {

// The pane has moved in macOS 13.
const char* FullDiskAccessPaneURL(bool isMacOS13OrLater);

// Deliberately the same on every version: the old link still finds the pane.
const char* AccessibilityPaneURL();

}  // namespace useragent
