#pragma once

#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSColor : NSObject <NSCopying, NSSecureCoding>
@property(class, readonly, strong) NSColor* redColor;
@end

NS_ASSUME_NONNULL_END
