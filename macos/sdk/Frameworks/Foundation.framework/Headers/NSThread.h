#pragma once

#include <Foundation/NSObject.h>

@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread;
@end
