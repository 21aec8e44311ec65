#pragma once

#include <AppKit/NSMenuItem.h>
#include <Foundation/Foundation.h>

@protocol NSMenuDelegate;

NS_ASSUME_NONNULL_BEGIN

@interface NSMenu : NSObject <NSCopying, NSCoding>
@property(copy) NSString* title;
@property(nullable, weak) id<NSMenuDelegate> delegate;
@property BOOL autoenablesItems;
@end

@protocol NSMenuDelegate <NSObject>
@optional
// Before the menu is shown.
- (void)menuNeedsUpdate:(NSMenu*)menu;
@end

NS_ASSUME_NONNULL_END
