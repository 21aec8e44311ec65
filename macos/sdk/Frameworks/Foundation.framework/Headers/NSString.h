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
- (unichar)characterAtIndex:(NSUInteger)index;
- (instancetype)init;
- (nullable instancetype)initWithCoder:(NSCoder*)coder;
@end

@interface NSString (NSStringExtensionMethods)
@property(nullable, readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
@property(readonly) double doubleValue;
@property(readonly) int intValue;
@property(readonly) NSInteger integerValue;
@property(readonly) long long longLongValue;
@property(readonly) BOOL boolValue;
@property(readonly, copy) NSString* lowercaseString;
- (BOOL)isEqualToString:(NSString*)aString;
- (BOOL)hasPrefix:(NSString*)str;
- (BOOL)hasSuffix:(NSString*)str;
- (NSString*)stringByAppendingString:(NSString*)aString;
- (nullable NSData*)dataUsingEncoding:(NSStringEncoding)encoding;
- (NSUInteger)lengthOfBytesUsingEncoding:(NSStringEncoding)enc;
- (NSArray<NSString*>*)componentsSeparatedByString:(NSString*)separator;

+ (instancetype)string;
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
+ (instancetype)stringWithFormat:(NSString*)format, ... NS_FORMAT_FUNCTION(1, 2);
// Null when the bytes are not of the encoding.
- (nullable instancetype)initWithUTF8String:(const char*)nullTerminatedCString;
- (nullable instancetype)initWithData:(NSData*)data encoding:(NSStringEncoding)encoding;
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)len
                              encoding:(NSStringEncoding)encoding;
@end

@interface NSMutableString : NSString
- (void)appendString:(NSString*)aString;
@end

NS_ASSUME_NONNULL_END
