#pragma once

#import <AppKit/AppKit.h>

#include <memory>

#include "useragent/AppMenu.h"

NS_ASSUME_NONNULL_BEGIN

// The menu behind the status item, as the storyboard makes it. The portable menu decides what it shows.
// Main thread.
@interface AppMenu : NSMenu

@property(nonatomic, weak, nullable) IBOutlet NSMenuItem* fulldiskItem;
@property(nonatomic, weak, nullable) IBOutlet NSMenuItem* accessibilityItem;
@property(nonatomic, weak, nullable) IBOutlet NSMenuItem* finderItem;
@property(nonatomic, weak, nullable) IBOutlet NSMenuItem* versionItem;

// What decides what the items show and do. To be set before the menu is shown.
@property(nonatomic) std::shared_ptr<useragent::AppMenu> menu;

// Rewrites what differs.
- (void)showItems:(const useragent::MenuItems&)items;

- (void)updateMenuWithFulldiskAccess:(BOOL)granted;

- (IBAction)option1Selected:(nullable id)sender;
- (IBAction)option2Selected:(nullable id)sender;
- (IBAction)option3Selected:(nullable id)sender;

@end

NS_ASSUME_NONNULL_END
