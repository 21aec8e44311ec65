#pragma once

#include <Foundation/NSObject.h>
#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSURL : NSObject <NSSecureCoding, NSCopying>
+ (NSURL*)fileURLWithPath:(NSString*)path;
+ (NSURL*)fileURLWithPath:(NSString*)path isDirectory:(BOOL)isDir;
// Null when the text is not a URL.
+ (nullable instancetype)URLWithString:(NSString*)URLString;
@property(nullable, readonly, copy) NSString* absoluteString;
@property(nullable, readonly, copy) NSString* scheme;
@property(nullable, readonly, copy) NSString* host;
@property(nullable, readonly, copy) NSString* path;
@property(nullable, readonly, copy) NSString* query;
@property(readonly) const char* fileSystemRepresentation NS_RETURNS_INNER_POINTER;
@property(readonly, getter=isFileURL) BOOL fileURL;
@end

@interface NSURLQueryItem : NSObject <NSSecureCoding, NSCopying>
+ (instancetype)queryItemWithName:(NSString*)name value:(nullable NSString*)value;
@property(readonly) NSString* name;
// Without percent encoding; null for a name without a value.
@property(nullable, readonly) NSString* value;
@end

@interface NSURLComponents : NSObject <NSCopying>
+ (nullable instancetype)componentsWithURL:(NSURL*)url resolvingAgainstBaseURL:(BOOL)resolve;
+ (nullable instancetype)componentsWithString:(NSString*)URLString;
@property(nullable, readonly, copy) NSURL* URL;
@property(nullable, readonly, copy) NSString* string;
@property(nullable, copy) NSString* scheme;
@property(nullable, copy) NSString* host;
@property(nullable, copy) NSString* path;
@property(nullable, copy) NSArray<NSURLQueryItem*>* queryItems;
@end

NS_ASSUME_NONNULL_END
