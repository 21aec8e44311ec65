#pragma once

#include <AppKit/NSCell.h>
#include <AppKit/NSUserInterfaceItemIdentification.h>
#include <Foundation/Foundation.h>

@class NSImage;
@class NSMenu;

NS_ASSUME_NONNULL_BEGIN

@interface NSMenuItem : NSObject <NSCopying, NSCoding, NSUserInterfaceItemIdentification>
@property(nullable, assign) NSMenu* menu;
@property(copy) NSString* title;
// Shown instead of the title; null for none.
@property(nullable, copy) NSAttributedString* attributedTitle;
@property(nullable, strong) NSImage* image;
@property NSControlStateValue state;
@property(getter=isEnabled) BOOL enabled;
@property(getter=isHidden) BOOL hidden;
@property(nullable, weak) id target;
@property(nullable) SEL action;
@end

NS_ASSUME_NONNULL_END
