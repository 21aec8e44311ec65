#pragma once

#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSString* NSImageName;

@interface NSImage : NSObject
// Of the main bundle's asset catalogue or resources, or the system's.
+ (nullable NSImage*)imageNamed:(NSImageName)name;
+ (nullable instancetype)imageWithSystemSymbolName:(NSString*)name
                          accessibilityDescription:(nullable NSString*)description API_AVAILABLE(macos(11.0));
@end

NS_ASSUME_NONNULL_END
