#pragma once

#include <AppKit/NSCell.h>
#include <AppKit/NSControl.h>

@class NSImage;

NS_ASSUME_NONNULL_BEGIN

typedef NS_ENUM(NSUInteger, NSButtonType) {
    // A check box.
    NSButtonTypeSwitch = 3,
};

@interface NSButton : NSControl
- (void)setButtonType:(NSButtonType)type;
@property(copy) NSString* title;
@property(copy) NSAttributedString* attributedTitle;
@property(nullable, strong) NSImage* image;
@property NSControlStateValue state;
@end

NS_ASSUME_NONNULL_END
