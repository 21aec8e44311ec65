#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <memory>

#import "interface/AppMenu.h"
#include "useragent/AppDelegate.h"

NS_ASSUME_NONNULL_BEGIN

namespace useragent {

// What the storyboard's objects cannot be given when they are made.
struct InterfaceEnvironment {
    std::shared_ptr<Accessibility> accessibility;
    std::shared_ptr<cmn::Dispatch> dispatch;
    std::shared_ptr<cmn::XPCTransport> transport;
};

}  // namespace useragent

// The application's delegate, as the storyboard makes it. The portable delegate decides. Main thread.
@interface AppDelegate : NSObject <NSApplicationDelegate, NSMenuDelegate, NSWindowDelegate>

@property(nonatomic, weak, nullable) IBOutlet AppMenu* appMenu;
@property(nonatomic, strong, nullable) NSMutableArray<NSWindowController*>* fileFiltersWindows;
@property(nonatomic, strong, nullable) NSStatusItem* statusItem;
// The one connection to the Finder extension service; null before the launch.
@property(nonatomic, readonly) std::shared_ptr<cmn::FinderExtensionXPCClient> XPCClient;
@property(nonatomic, strong, nullable) NSTimer* menuUpdateTimer;

// To be set before the application runs.
+ (void)setEnvironment:(useragent::InterfaceEnvironment)environment;

// Called when the user is about to see the menu.
- (void)setMenuNeedsUpdateHandler:(std::function<void()>)handler;

- (void)checkAgentIconPermission;
- (void)updateMenu;
- (void)showFileFiltersForFile:(nullable NSString*)path;
- (BOOL)checkFileEncryption:(nullable NSString*)path;

@end

NS_ASSUME_NONNULL_END
