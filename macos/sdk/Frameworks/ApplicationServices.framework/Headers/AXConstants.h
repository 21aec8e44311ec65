#pragma once

#include <CoreFoundation/CFString.h>

// Not used here; macros on the platform, so that no name of ours may be one of them.
#define kAXMainWindowAttribute CFSTR("AXMainWindow")
#define kAXChildrenAttribute CFSTR("AXChildren")
#define kAXRoleAttribute CFSTR("AXRole")
#define kAXDescriptionAttribute CFSTR("AXDescription")
#define kAXIdentifierAttribute CFSTR("AXIdentifier")
#define kAXPlaceholderValueAttribute CFSTR("AXPlaceholderValue")
#define kAXValueAttribute CFSTR("AXValue")
#define kAXTextFieldRole CFSTR("AXTextField")
#define kAXMainWindowChangedNotification CFSTR("AXMainWindowChanged")
#define kAXValueChangedNotification CFSTR("AXValueChanged")
