#pragma once

#include <Foundation/NSArray.h>
#include <Foundation/NSError.h>
#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
// Names, in no order.
- (nullable NSArray<NSString*>*)contentsOfDirectoryAtPath:(NSString*)path
                                                    error:(NSError* _Nullable* _Nullable)error;
@end

NS_ASSUME_NONNULL_END
