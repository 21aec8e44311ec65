#pragma once

#import <AppKit/AppKit.h>

NS_ASSUME_NONNULL_BEGIN

// The controller of one properties window.
@interface PropertiesWindowController : NSWindowController

// What is called when the user closes the window; nil afterwards.
@property(nonatomic, copy, nullable) void (^willClose)(void);

- (void)reportClose;

@end

NS_ASSUME_NONNULL_END
