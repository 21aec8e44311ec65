#pragma once

#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

FOUNDATION_EXPORT NSString* _Nullable NSHomeDirectoryForUser(NSString* _Nullable userName);

@interface NSString (NSStringPathExtensions)
@property(readonly) const char* fileSystemRepresentation NS_RETURNS_INNER_POINTER;
@end

NS_ASSUME_NONNULL_END
