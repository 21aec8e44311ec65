#pragma once

#include <Foundation/NSData.h>
#include <Foundation/NSError.h>
#include <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSFileHandle : NSObject <NSSecureCoding>
- (NSData*)readDataToEndOfFile;
- (void)closeFile;
@end

@interface NSPipe : NSObject
@property(readonly, strong) NSFileHandle* fileHandleForReading;
+ (NSPipe*)pipe;
@end

NS_ASSUME_NONNULL_END
