#pragma once

#import <Foundation/Foundation.h>

#import "macos_xpccommon/XPCVersioning.h"

NS_ASSUME_NONNULL_BEGIN

// What the agent hands to the daemon: asks a browser's current URL.
@protocol URLExtractor
- (void)getURL:(NSString*)browser reply:(void (^)(NSURL* _Nullable url))reply;
@end

// Messages of the service "com.tessarin.UserAgent".
@protocol UserAgentProtocol <XPCVersioning>
- (void)setURLExtractor:(id<URLExtractor>)extractor reply:(void (^)(BOOL))reply;
- (void)sendURL:(NSString*)url browser:(NSString*)browser processID:(int)processID;
@end

NS_ASSUME_NONNULL_END
