#pragma once

#include <Foundation/NSData.h>
#include <Foundation/NSError.h>
#include <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSFileHandle : NSObject <NSSecureCoding>
- (NSData*)readDataToEndOfFile;
- (nullable NSData*)readDataToEndOfFileAndReturnError:(NSError* _Nullable* _Nullable)error;
- (void)closeFile;
@property(readonly) int fileDescriptor;
@property(class, readonly, strong) NSFileHandle* fileHandleWithNullDevice;
@end

@interface NSPipe : NSObject
@property(readonly, strong) NSFileHandle* fileHandleForReading;
@property(readonly, strong) NSFileHandle* fileHandleForWriting;
+ (NSPipe*)pipe;
@end

NS_ASSUME_NONNULL_END
