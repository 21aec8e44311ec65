#pragma once

#include <AppKit/NSButton.h>

@interface NSStatusBarButton : NSButton
@property BOOL appearsDisabled;
@end
