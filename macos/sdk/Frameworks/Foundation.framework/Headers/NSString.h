#pragma once

#include <Foundation/NSObject.h>
#include <stdarg.h>

@class NSArray<ObjectType>;
@class NSData;

NS_ASSUME_NONNULL_BEGIN

typedef unsigned short unichar;
typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding {
    NSUTF8StringEncoding = 4,
};

@interface NSString : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
// In UTF-16 code units.
@property(readonly) NSUInteger length;
- (instancetype)init;
@end

@interface NSString (NSStringExtensionMethods)
@property(nullable, readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
@property(readonly) double doubleValue;
@property(readonly) int intValue;
@property(readonly) long long longLongValue;
@property(readonly) BOOL boolValue;

+ (instancetype)string;
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
+ (instancetype)stringWithFormat:(NSString*)format, ... NS_FORMAT_FUNCTION(1, 2);
- (nullable instancetype)initWithData:(NSData*)data encoding:(NSStringEncoding)encoding;
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)len
                              encoding:(NSStringEncoding)encoding;
@end

NS_ASSUME_NONNULL_END
