#pragma once

#include <Foundation/NSEnumerator.h>
#include <Foundation/NSObject.h>

@class NSString;

NS_ASSUME_NONNULL_BEGIN

@interface NSArray<__covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property(readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
- (instancetype)init;
@end

@interface NSArray <ObjectType>(NSExtendedArray)
// What the compiler calls for array[index].
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)idx;
@end

@interface NSArray <ObjectType>(NSArrayCreation)
+ (instancetype)array;
// What the compiler calls for @[...].
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects count:(NSUInteger)cnt;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (void)addObject:(ObjectType)anObject;
@end

@interface NSMutableArray <ObjectType>(NSExtendedMutableArray)
- (void)removeObjectIdenticalTo:(ObjectType)anObject;
@end

@interface NSMutableArray <ObjectType>(NSMutableArrayCreation)
+ (instancetype)arrayWithCapacity:(NSUInteger)numItems;
@end

NS_ASSUME_NONNULL_END
