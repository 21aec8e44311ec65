#pragma once

#include <AppKit/NSResponder.h>
#include <AppKit/NSUserInterfaceItemIdentification.h>
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, NSAutoresizingMaskOptions) {
    NSViewNotSizable = 0,
    NSViewWidthSizable = 2,
    NSViewHeightSizable = 16,
};

@interface NSView : NSResponder <NSUserInterfaceItemIdentification>
- (instancetype)initWithFrame:(NSRect)frameRect;
@property(nullable, readonly, copy) NSArray<__kindof NSView*>* subviews;
- (void)addSubview:(NSView*)view;
@property NSRect frame;
// What its content needs, in points.
@property(readonly) NSSize intrinsicContentSize;
@property NSAutoresizingMaskOptions autoresizingMask;
@property(getter=isHidden) BOOL hidden;
@property(nullable, copy) NSString* toolTip;
@end

NS_ASSUME_NONNULL_END
