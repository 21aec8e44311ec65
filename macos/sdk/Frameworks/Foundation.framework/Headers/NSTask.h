#pragma once

#include <Foundation/NSArray.h>
#include <Foundation/NSError.h>
#include <Foundation/NSString.h>
#include <Foundation/NSURL.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSTask : NSObject
- (instancetype)init;
@property(nullable, copy) NSArray<NSString*>* arguments;
@property(nullable, strong) id standardOutput;
@property(nullable, strong) id standardError;
- (void)terminate;
@property(readonly) int terminationStatus;
@end

@interface NSTask (NSTaskConveniences)
- (void)waitUntilExit;
@end

@interface NSTask (NSDeprecated)
@property(nullable, copy) NSString* launchPath;
// Throws NSException when the program cannot be started.
- (void)launch;
@end

NS_ASSUME_NONNULL_END
