#pragma once

#include <Foundation/NSEnumerator.h>
#include <Foundation/NSObject.h>

@class NSArray<ObjectType>;

NS_ASSUME_NONNULL_BEGIN

@interface NSSet<__covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property(readonly) NSUInteger count;
- (instancetype)init;
- (nullable instancetype)initWithCoder:(NSCoder*)coder;
@end

@interface NSSet <ObjectType>(NSExtendedSet)
- (BOOL)containsObject:(ObjectType)anObject;
@end

@interface NSSet <ObjectType>(NSSetCreation)
+ (instancetype)setWithObject:(ObjectType)object;
+ (instancetype)setWithObjects:(ObjectType)firstObj, ... NS_REQUIRES_NIL_TERMINATION;
+ (instancetype)setWithArray:(NSArray<ObjectType>*)array;
@end

NS_ASSUME_NONNULL_END
