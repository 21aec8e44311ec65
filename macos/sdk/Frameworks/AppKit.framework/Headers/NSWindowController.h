#pragma once

#include <AppKit/NSWindow.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSWindowController : NSResponder
- (instancetype)initWithWindow:(nullable NSWindow*)window;
@property(nullable, strong) NSWindow* window;
@property(nullable, strong) NSViewController* contentViewController;
- (void)showWindow:(nullable id)sender;
- (void)close;
@end

NS_ASSUME_NONNULL_END
