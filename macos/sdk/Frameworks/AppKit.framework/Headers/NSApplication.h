#pragma once

#include <AppKit/NSResponder.h>
#include <Foundation/Foundation.h>

@protocol NSApplicationDelegate;

NS_ASSUME_NONNULL_BEGIN

@interface NSApplication : NSResponder
@property(class, readonly, strong) __kindof NSApplication* sharedApplication;
@property(nullable, weak) id<NSApplicationDelegate> delegate;
- (void)run;
// Does not return when the delegate agrees.
- (void)terminate:(nullable id)sender;
@end

// Makes the principal class's application and the main interface file of the bundle, and runs. Does not
// return.
APPKIT_EXTERN int NSApplicationMain(int argc, const char* _Nonnull argv[_Nonnull]);

@protocol NSApplicationDelegate <NSObject>
@optional
// Also the URLs of the schemes that the application's Info.plist names.
- (void)application:(NSApplication*)application openURLs:(NSArray<NSURL*>*)urls;
- (BOOL)applicationShouldTerminateAfterLastWindowClosed:(NSApplication*)sender;
- (BOOL)applicationSupportsSecureRestorableState:(NSApplication*)app;
- (void)applicationWillFinishLaunching:(NSNotification*)notification;
- (void)applicationDidFinishLaunching:(NSNotification*)notification;
- (void)applicationWillTerminate:(NSNotification*)notification;
@end

NS_ASSUME_NONNULL_END
