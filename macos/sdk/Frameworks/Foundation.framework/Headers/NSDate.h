#pragma once

#include <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

// In seconds.
typedef double NSTimeInterval;

NS_ASSUME_NONNULL_END
