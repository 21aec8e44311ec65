#pragma once

#include <Foundation/Foundation.h>

// What happens to the end of a line that is too long.
typedef NS_ENUM(NSUInteger, NSLineBreakMode) {
    NSLineBreakByTruncatingTail = 4,
};
