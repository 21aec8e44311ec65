#pragma once

#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

FOUNDATION_EXPORT NSString* NSUserName(void);
FOUNDATION_EXPORT NSString* NSHomeDirectory(void);
FOUNDATION_EXPORT NSString* _Nullable NSHomeDirectoryForUser(NSString* _Nullable userName);

@interface NSString (NSStringPathExtensions)
@property(readonly, copy) NSString* lastPathComponent;
@property(readonly, copy) NSString* stringByDeletingLastPathComponent;
- (NSString*)stringByAppendingPathComponent:(NSString*)str;
@property(readonly) const char* fileSystemRepresentation NS_RETURNS_INNER_POINTER;
@end

NS_ASSUME_NONNULL_END
