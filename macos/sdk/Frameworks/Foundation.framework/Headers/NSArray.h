#pragma once

#include <Foundation/NSEnumerator.h>
#include <Foundation/NSObject.h>

@class NSPredicate;
@class NSString;

NS_ASSUME_NONNULL_BEGIN

@interface NSArray<__covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property(readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
- (instancetype)init;
- (nullable instancetype)initWithCoder:(NSCoder*)coder;
@end

@interface NSArray <ObjectType>(NSExtendedArray)
@property(nullable, nonatomic, readonly) ObjectType firstObject;
@property(nullable, nonatomic, readonly) ObjectType lastObject;
- (BOOL)containsObject:(ObjectType)anObject;
- (BOOL)isEqualToArray:(NSArray<ObjectType>*)otherArray;
- (NSString*)componentsJoinedByString:(NSString*)separator;
// What the compiler calls for array[index].
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)idx;
@end

@interface NSArray <ObjectType>(NSArrayCreation)
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
// What the compiler calls for @[...].
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects count:(NSUInteger)cnt;
@end

@interface NSArray <ObjectType>(NSPredicateSupport)
- (NSArray<ObjectType>*)filteredArrayUsingPredicate:(NSPredicate*)predicate;
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (void)addObject:(ObjectType)anObject;
- (void)removeObjectAtIndex:(NSUInteger)index;
@end

@interface NSMutableArray <ObjectType>(NSExtendedMutableArray)
- (void)removeAllObjects;
- (void)removeObjectIdenticalTo:(ObjectType)anObject;
- (void)setObject:(ObjectType)obj atIndexedSubscript:(NSUInteger)idx;
@end

@interface NSMutableArray <ObjectType>(NSMutableArrayCreation)
+ (instancetype)arrayWithCapacity:(NSUInteger)numItems;
@end

NS_ASSUME_NONNULL_END
