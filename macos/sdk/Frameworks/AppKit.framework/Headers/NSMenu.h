#pragma once

#include <AppKit/NSMenuItem.h>
#include <Foundation/Foundation.h>

@protocol NSMenuDelegate;

NS_ASSUME_NONNULL_BEGIN

@interface NSMenu : NSObject <NSCopying, NSCoding>
- (instancetype)initWithTitle:(NSString*)title;
@property(copy) NSString* title;
@property(nullable, weak) id<NSMenuDelegate> delegate;
@property BOOL autoenablesItems;
@property(copy) NSArray<NSMenuItem*>* itemArray;
@property(readonly) NSInteger numberOfItems;
- (void)addItem:(NSMenuItem*)newItem;
- (nullable NSMenuItem*)itemAtIndex:(NSInteger)index;
- (nullable NSMenuItem*)itemWithTag:(NSInteger)tag;
@end

@protocol NSMenuDelegate <NSObject>
@optional
// Before the menu is shown.
- (void)menuNeedsUpdate:(NSMenu*)menu;
@end

NS_ASSUME_NONNULL_END
