#pragma once

#include <Foundation/Foundation.h>

typedef NS_ENUM(NSUInteger, NSBackingStoreType) {
    NSBackingStoreBuffered = 2,
};
