#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

// Calls a block whenever one file is written, extended or renamed, until the watch is released. The block
// runs on the global queue of default priority.
@interface FileWatch : NSObject

// Nil, without a message, when the file cannot be opened.
- (nullable instancetype)initWithURL:(NSURL*)url withDelegate:(nullable void (^)(void))handler;

@end

NS_ASSUME_NONNULL_END
