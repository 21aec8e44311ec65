#pragma once

#include <AppKit/NSResponder.h>
#include <AppKit/NSUserInterfaceItemIdentification.h>
#include <AppKit/NSView.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSViewController : NSResponder <NSUserInterfaceItemIdentification>
@property(strong) NSView* view;
@property(nullable, copy) NSString* title;
// Outlets are connected from here on.
- (void)viewDidLoad;
@end

NS_ASSUME_NONNULL_END
