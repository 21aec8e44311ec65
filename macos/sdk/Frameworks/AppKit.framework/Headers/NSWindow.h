#pragma once

#include <AppKit/NSGraphics.h>
#include <AppKit/NSResponder.h>
#include <AppKit/NSUserInterfaceItemIdentification.h>
#include <CoreGraphics/CGWindow.h>

@class NSView;
@class NSViewController;
@protocol NSWindowDelegate;

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask) {
    NSWindowStyleMaskBorderless = 0,
    NSWindowStyleMaskTitled = 1 << 0,
    NSWindowStyleMaskClosable = 1 << 1,
    NSWindowStyleMaskMiniaturizable = 1 << 2,
    NSWindowStyleMaskResizable = 1 << 3,
};

typedef NSInteger NSWindowLevel;
// Above all windows of the normal level.
static const NSWindowLevel NSFloatingWindowLevel = 3;

@interface NSWindow : NSResponder <NSUserInterfaceItemIdentification>
// In points.
- (instancetype)initWithContentRect:(NSRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag;
@property(copy) NSString* title;
@property(nullable, weak) id<NSWindowDelegate> delegate;
@property(nullable, strong) NSView* contentView;
@property(nullable, strong) NSViewController* contentViewController;
@property NSWindowStyleMask styleMask;
@property NSWindowLevel level;
@property(readonly, getter=isVisible) BOOL visible;
// Must be NO for a window that somebody holds.
@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
- (void)center;
- (void)close;
@end

@protocol NSWindowDelegate <NSObject>
@optional
- (void)windowWillClose:(NSNotification*)notification;
@end

NS_ASSUME_NONNULL_END
