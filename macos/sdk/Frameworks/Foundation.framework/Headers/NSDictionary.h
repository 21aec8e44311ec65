#pragma once

#include <Foundation/NSEnumerator.h>
#include <Foundation/NSObject.h>

@class NSArray<ObjectType>;

NS_ASSUME_NONNULL_BEGIN

@interface NSDictionary<__covariant KeyType, __covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property(readonly) NSUInteger count;
- (nullable ObjectType)objectForKey:(KeyType)aKey;
- (instancetype)init;
@end

@interface NSDictionary <KeyType, ObjectType>(NSExtendedDictionary)
// What the compiler calls for dictionary[key].
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key;
@end

@interface NSDictionary <KeyType, ObjectType>(NSDictionaryCreation)
+ (instancetype)dictionary;
// What the compiler calls for @{...}.
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                                count:(NSUInteger)cnt;
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
- (void)setObject:(ObjectType)anObject forKey:(KeyType<NSCopying>)aKey;
@end

@interface NSMutableDictionary <KeyType, ObjectType>(NSExtendedMutableDictionary)
- (void)setObject:(nullable ObjectType)obj forKeyedSubscript:(KeyType<NSCopying>)key;
@end

NS_ASSUME_NONNULL_END
